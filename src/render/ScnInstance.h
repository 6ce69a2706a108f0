// A stored object file (.3Do) shown in the scene. The loaded node is the
// instance's one child: copies of the instance (the run-time twin) copy it
// with the rest, but the file keeps only the path, so a save never writes it.
#pragma once

#include "node/ScnNode.h"

class ScnInstance : public ScnGroup {
    SCN_NODE(ScnInstance, ScnGroup)
public:
    ScnInstance();

    // The object file, relative to the workspace folder.
    ScnSFString path{this, "path"};
    // Applied once to the loaded object, at load: to each transform in it.
    ScnSFMatrix transform{this, "transform"};

    // Stored as path, name, transform; read loads the object.
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;

    // Drops what was loaded and loads `path` again. A file that cannot be
    // opened or read is logged and leaves the instance empty; false then.
    bool load();
    // The loaded object, or null.
    ScnNode* root() const { return firstChild(); }

    // The walks enter the loaded object with the instance's name on the
    // action's instance path.
    void onRender(ScnAction& action) override;
    void onEvent(ScnAction& action) override;
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    bool isInstanceWrapper() const override { return true; }

private:
    // Moves every transform of a loaded object by `transform`.
    void place(ScnNode* loaded) const;
    void enter(ScnAction& action, bool walkChildren);
};
