// The output list: once per tick the message rings are drained into rows, in
// the order the messages were written, each row keeping its kind and the
// place it points at (node, register, line) so that activating it can lead
// there. Optionally every drained message is also written to "console.txt".
#pragma once

#include <cstdio>
#include <string>

#include <QListWidget>

class ScnNode;
class LogRing;

class CtlOutput : public QListWidget {
    Q_OBJECT
public:
    // Row kinds, by the ring a message came from.
    enum Kind {
        ScriptError = 8,
        KernelError = 9,
        KernelWarning = 10,
        ShaderMessage = 11,
        Text = 12,
        Error = 13,
        Notice = 20,
    };
    // Item data roles of a row.
    enum Role { KindRole = Qt::UserRole, NodeRole, LineRole, RegisterRole };
    // Rows kept; the oldest go first.
    static constexpr int kMaxRows = 10000;

    explicit CtlOutput(QWidget* parent = nullptr);
    ~CtlOutput() override;

    static int kindOf(const LogRing& ring);
    // True for the kinds that stop the simulation.
    static bool isErrorKind(int kind) { return kind >= ScriptError && kind <= ShaderMessage; }

    // Moves every pending message into the list; true when at least one of
    // the new rows is an error of a script, a kernel or a shader.
    bool drain();
    // Empties the rings and the list; an open log file starts anew.
    void clear();

    // "Write to console.txt": on opens the file in the workspace, off closes
    // it; each reports on the console channel. False when it cannot be opened.
    bool setLogging(bool on);
    bool isLogging() const { return m_log != nullptr; }

    // Rows stop pointing at nodes: before the nodes are deleted (a document
    // closes), or only at run-time nodes (a reset rebuilds them).
    void forgetNodes(bool runtimeOnly);

signals:
    // A row was activated: the node it points at (or null), its line and
    // register.
    void jump(ScnNode* node, int line, int reg, int kind);

private:
    void activate(QListWidgetItem* item);

    FILE* m_log = nullptr;
    std::string m_logPath;
};
