#pragma once

// Marks what libfsysav exports; everything else stays hidden (-fvisibility=hidden).
#define AV_API __attribute__((visibility("default")))

// Marks members of an exported class that are for the library alone.
#define AV_LOCAL __attribute__((visibility("hidden")))
