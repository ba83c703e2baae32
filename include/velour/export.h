#pragma once

// Marks what libvelour.so exports; everything else is built hidden.
#define VELOUR_EXPORT __attribute__((visibility("default")))
