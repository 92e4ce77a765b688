#pragma once

// Marks what libfsysmedia exports; everything else stays hidden (-fvisibility=hidden).
#define MEDIA_API __attribute__((visibility("default")))

// Marks members of an exported class that are for the library alone.
#define MEDIA_LOCAL __attribute__((visibility("hidden")))
