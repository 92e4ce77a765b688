#pragma once

// Marks what libsupport exports; everything else stays hidden (-fvisibility=hidden).
#define SUPPORT_API __attribute__((visibility("default")))
