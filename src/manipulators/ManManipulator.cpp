#include "manipulators/ManManipulator.h"

ScnNodeType ManManipulator::s_type;
ScnNodeType ManManipulator3D::s_type;
ScnNodeType ManManipulatorGui::s_type;
