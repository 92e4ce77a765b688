// The text of a cookie: what parses prints a text that parses to the same, and all ways to parse agree.

#include "Fuzz.h"

#include <string>

#include "Qz/Cookie.h"
#include "Qz/Utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const LightweightString<char> text{std::string(textOf(data, size))};
    const LightweightString<wchar_t> wide = fromUTF8(text);
    const Cookie complete(text, true);
    const Cookie either(text, false);
    require(Cookie(wide, true) == complete && Cookie(wide, false) == either, "wide text parses the same");
    require(!complete.valid() || either == complete, "the complete form is taken where the short one is too");

    const Cookie fromName = Cookie::fromCompleteForm(wide.view());
    require(!fromName.valid() || fromName == complete, "a stem parses to the same cookie");

    require(either.valid() || either.asString(true).empty(), "an invalid cookie prints as nothing");
    if (!either.valid())
        return 0;
    const LightweightString<char> printed = either.asString(true);
    require(printed.size() == Cookie::completeLength, "the complete form has its length");
    require(Cookie(printed, true) == either, "the complete form comes back");
    require(fromUTF8(printed) == either.asWString(), "both complete forms are one");
    require(Cookie(either.asString(false), false).getClip() == either.getClip(),
            "the short form keeps the clip");
    require(Cookie::fromCompleteForm(either.asWString().view()) == either,
            "the stem that it makes comes back");
    return 0;
}
