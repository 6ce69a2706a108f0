#include "render/ScnTest.h"

ScnNodeType ScnTest::s_type;

ScnTest::ScnTest()
{
    name = "Test";
}
