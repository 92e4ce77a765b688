#pragma once

// Marks what libfsysmedia exports; everything else stays hidden (-fvisibility=hidden).
#define MEDIA_API __attribute__((visibility("default")))
