#include "Qz/InternalRefCount.h"

namespace Qz {

InternalRefCount::~InternalRefCount() = default;

}  // namespace Qz
