// Prints a new cookie: 'V' or 'S' and 18 digits.

#include "Qz/Cookie.h"
#include "Qz/Utf8.h"

#include <cstdio>

int main()
{
    const Cookie cookie = Cookie::makeNew();
    return std::printf("%s\n", toUTF8(cookie.asWString()).c_str()) == 20 ? 0 : 1;
}
