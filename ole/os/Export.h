#pragma once

// Marks what libos exports; everything else stays hidden (-fvisibility=hidden).
#define OS_API __attribute__((visibility("default")))
