// The kernel time chart of a program: one row per kernel that ran, a red bar
// as long as its last launch took against the longest, and the time in
// microseconds. Binding a program turns profiling on in its running kernels
// (each launch then waits for its times to be read), unbinding turns it off.
#pragma once

#include <QFont>
#include <QWidget>

#include "node/FCTFunctor.h"

class OclSourceNode;
class RtnSelection;
class ScnNode;

class CtlProfiler : public QWidget {
    Q_OBJECT
public:
    explicit CtlProfiler(QWidget* parent = nullptr);
    ~CtlProfiler() override;

    // The program node of the design tree whose running twin is charted, or
    // null. Follows the node selection unless bound by hand.
    void setProgram(ScnNode* design);
    ScnNode* program() const { return m_design; }

    struct Row {
        QString name;
        uint64_t nanoseconds;
    };
    // The rows the chart shows now: kernels with a non-zero last launch.
    std::vector<Row> rows();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    OclSourceNode* twin() const;
    void setProfiling(OclSourceNode* twin, bool on);
    void onSelection(RtnSelection& s);

    ScnNode* m_design = nullptr;
    QFont m_font{"Courier New"};
    FCTFunctor1V<CtlProfiler, RtnSelection&> m_observer{this, &CtlProfiler::onSelection};
};
