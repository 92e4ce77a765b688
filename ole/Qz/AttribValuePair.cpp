#include "Qz/AttribValuePair.h"

namespace Qz {

AttribValuePair::AttribValuePair(const LightweightString<char>& text, char separator) : separator_(separator)
{
    const std::size_t split = text.find(separator);
    if (split == LightweightString<char>::npos)
        return;
    name_ = text.substr(0, split);
    value_ = text.substr(split + 1);
    valid_ = !name_.empty();
}

AttribValuePair::AttribValuePair(const LightweightString<char>& name, const LightweightString<char>& value,
                                 char separator)
    : name_(name), value_(value), separator_(separator), valid_(!name.empty())
{}

LightweightString<char> AttribValuePair::asString() const { return name_ + separator_ + value_; }

}  // namespace Qz
