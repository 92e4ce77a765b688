#pragma once

// Marks what libqz exports; everything else stays hidden (-fvisibility=hidden).
#define QZ_API __attribute__((visibility("default")))
