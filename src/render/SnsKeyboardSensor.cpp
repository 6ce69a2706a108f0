#include "render/SnsKeyboardSensor.h"

ScnNodeType SnsKeyboardSensor::s_type;

SnsKeyboardSensor::SnsKeyboardSensor()
{
    name = "keyboard";
}
