#include <GL/glew.h>

#include "render/ScnTest.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "node/ScnAction.h"
#include "platform/GlContext.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

ScnNodeType ScnTest::s_type;

ScnTest::ScnTest()
{
    name = "Test";
}

void ScnTest::onCreate(ScnAction& action)
{
    m_points.clear();
    m_box = ScnBox{};
    const std::string file = AppGlobal::projectPath() + "/cloud.txt";
    if (FILE* f = std::fopen(file.c_str(), "r")) {
        std::vector<char> line(kLineMax + 2);
        while (std::fgets(line.data(), static_cast<int>(line.size()), f)) {
            float p[3];
            if (std::sscanf(line.data(), "%f %f %f", &p[0], &p[1], &p[2]) == 3) {
                m_points.insert(m_points.end(), p, p + 3);
                for (int i = 0; i < 3; ++i) {
                    m_box.min[i] = std::min(m_box.min[i], static_cast<double>(p[i]));
                    m_box.max[i] = std::max(m_box.max[i], static_cast<double>(p[i]));
                }
            }
            // The rest of an overlong line is not a line of its own.
            const size_t n = std::char_traits<char>::length(line.data());
            if (n > 0 && line[n - 1] != '\n') {
                int c;
                while ((c = std::fgetc(f)) != EOF && c != '\n') {
                }
            }
        }
        std::fclose(f);
    }
    LogStream(Channels::console(), "ScnTest") << m_points.size() / 3 << " points read from cloud.txt";
    // Like an instance, the point reader ends the walk of its list.
}

void ScnTest::onRender(ScnAction& action)
{
    if (GlContext::ready()) {
        glDisable(GL_LIGHTING);
        glPointSize(4);
        glEnable(GL_LIGHTING);
    }
}
