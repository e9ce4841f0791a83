#pragma once

// What <cutils/properties.h> takes from the device's C library.
#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
