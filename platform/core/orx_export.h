#pragma once

/// Marks what a shared library of the project exports; everything else is hidden.
#define ORX_EXPORT __attribute__((visibility("default")))
/// Keeps a private member of an exported class out of the exported symbols.
#define ORX_LOCAL __attribute__((visibility("hidden")))
