#pragma once

// Marks what libfsys exports; everything else stays hidden (-fvisibility=hidden).
#define FSYS_API __attribute__((visibility("default")))
