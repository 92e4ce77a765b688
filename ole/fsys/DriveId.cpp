#include "fsys/DriveId.h"

LightweightString<char> DriveId::asString() const { return std::string_view(&id_, 1); }
