#pragma once

// Marks what libfsys exports; everything else stays hidden (-fvisibility=hidden).
#define FSYS_API __attribute__((visibility("default")))

// Marks members of an exported class that are for the library alone.
#define FSYS_LOCAL __attribute__((visibility("hidden")))
