#include "Qz/iObject.h"

iObject::~iObject() = default;
