#pragma once

#include "Qz/Export.h"
#include "Qz/LightweightString.h"

namespace Qz {

// AttribValuePair: one "name=value" line of a text file.
//
// Parsing splits at the first separator. The pair is valid when there is one and the name before it is
// not empty. Name and value are kept verbatim, blanks included. A text without a separator leaves both
// null.
class QZ_API AttribValuePair
{
public:
    // Splits a line.
    AttribValuePair(const LightweightString<char>& text, char separator);
    // Puts a line together; valid when name is not empty.
    AttribValuePair(const LightweightString<char>& name, const LightweightString<char>& value,
                    char separator);

    // False when the pair must not be used: no separator, or nothing in front of it.
    [[nodiscard]] bool isValid() const { return valid_; }
    // Each verbatim; null where the text had no separator.
    [[nodiscard]] const LightweightString<char>& getName() const { return name_; }
    [[nodiscard]] const LightweightString<char>& getValue() const { return value_; }
    // Name, separator and value in one text.
    [[nodiscard]] LightweightString<char> asString() const;

private:
    LightweightString<char> name_;
    LightweightString<char> value_;
    char separator_;
    bool valid_ = false;
};

}  // namespace Qz
