#include "compute/OclPlugin.h"

ScnNodeType OclPlugin::s_type;

// The node keeps the base name "node" until it is given one.
OclPlugin::OclPlugin() = default;
