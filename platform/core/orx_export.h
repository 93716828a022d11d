#pragma once

/// Marks what a shared library of the project exports; everything else is hidden.
#define ORX_EXPORT __attribute__((visibility("default")))
