#include "compute/OclNodes.h"

namespace OclGlobal {
static std::string s_currentName;
const std::string& currentContextName() { return s_currentName; }
void setCurrentContextName(const std::string& n) { s_currentName = n; }
}

ScnNodeType OclDevice::s_type;
ScnNodeType OclPlatform::s_type;
ScnNodeType OclProgram::s_type;
ScnNodeType OclFileRef::s_type;

const char* const OclProgram::kDefaultSource = "__kernel void clKernel()\n{\n}";

OclDevice::OclDevice()
{
    name = "OpenCL";
}

OclPlatform::OclPlatform()
{
    name = "clPlatform";
}

OclProgram::OclProgram()
{
    name = "clProgram";
}

OclFileRef::OclFileRef()
{
    name = "clFile";
}
