// The register grid of a processor: 32 cells, 8 to a row, one per register
// slot. A cell shows its register's first token (class colour and name) and a
// bar per event function that has code; a failed or edited function's bar is
// red. Clicking selects the register, Ctrl-dragging moves it to an empty
// cell, "Remove" deletes it, the arrow keys walk the cells.
#pragma once

#include <QWidget>

#include "node/FCTFunctor.h"

class QMenu;
class RtnProcessor;
class RtnRegister;
class RtnSelection;
class ScnNode;

class CtlColorGrid : public QWidget {
    Q_OBJECT
public:
    static constexpr int kCells = 32;
    static constexpr int kColumns = 8;
    static constexpr int kLeft = 22;
    static constexpr int kTop = 18;
    static constexpr int kCellHeight = 18;

    explicit CtlColorGrid(QWidget* parent = nullptr);
    ~CtlColorGrid() override;

    // The cell width for the present client width: (width - 22) / 8, at least 50.
    int cellWidth() const;
    // The cell under a client point, or -1.
    int cellAt(const QPoint& p) const;
    QRect cellRect(int index) const;
    int selectedCell() const { return m_selected; }

    // The cell colour of a token's class, as 0xRRGGBB.
    static unsigned classColour(const ScnNode* token);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    RtnProcessor* processor() const;
    // Selects the register of `cell` as a click does; an empty cell clears
    // the register selection.
    void selectCell(int cell);
    void onSelection(RtnSelection& s);

    int m_selected = -1;
    int m_dragged = -1;
    QMenu* m_menu = nullptr;
    FCTFunctor1V<CtlColorGrid, RtnSelection&> m_observer{this, &CtlColorGrid::onSelection};
};
