// A point cloud read from the workspace's "cloud.txt" at create: one point a
// line of three numbers. It stores nothing of its own but its name; its box
// is the box of the points.
#pragma once

#include <vector>

#include "node/ScnNode.h"

class ScnTest : public ScnNode {
    SCN_NODE(ScnTest, ScnNode)
public:
    ScnTest();

    static constexpr int kLineMax = 10000;

    // Reads the file again: every line (up to 10000 characters) that reads
    // as three numbers adds a point; the count goes to the console.
    void onCreate(ScnAction& action) override;
    // Sets the point size the cloud is meant to be seen with (4) and draws nothing.
    void onRender(ScnAction& action) override;
    ScnBox computeBounds() const override { return m_box; }

    const std::vector<float>& points() const { return m_points; }

private:
    std::vector<float> m_points;  // three floats a point
    ScnBox m_box;
};
