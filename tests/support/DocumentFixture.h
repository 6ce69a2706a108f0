// A workspace of its own and an open-able document with a clock that only
// moves when told; what scripts print is read back with drain().
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnDocument.h"
#include "support/TempDir.h"

using Lines = std::vector<std::string>;

// Every pending message, oldest first, as printed; the hints that every
// opened file gives are left out.
inline Lines drain()
{
    Lines out;
    for (const LogRecord& r : Channels::drainMerged())
        if (std::string_view(r.text).rfind("(intro): ", 0) != 0) out.push_back(r.text);
    return out;
}

class DocumentFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_cwd = std::filesystem::current_path();
        ASSERT_TRUE(AppGlobal::setProjectPath(m_ws.path()));
        Channels::clearAll();
    }
    void TearDown() override
    {
        m_doc.close();
        std::filesystem::current_path(m_cwd);
    }

    TempDir m_ws{"velmora-document"};
    std::filesystem::path m_cwd;
    ManualClock m_clock;
    RtnDocument m_doc{m_clock};
};
