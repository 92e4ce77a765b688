// The names of proxy files: what MediaFileInfo reads from a name and builds.

#include "fsys/MediaFileInfo.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Qz/StringHelpers.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

namespace {

constexpr std::wstring_view proxyWord = L"proxy";
constexpr std::wstring_view scanBlanks = L" \t\n\v\f\r";

// Reads a decimal number as "%d" of scanf does: white space, a sign, digits, anything behind them. The
// number is taken modulo 2^32, negative ones as their two's complement.
std::optional<std::uint32_t> scanNumber(std::wstring_view text)
{
    const auto isDigit = [](wchar_t character) { return character >= L'0' && character <= L'9'; };

    text.remove_prefix(std::min(text.find_first_not_of(scanBlanks), text.size()));
    const bool negative = text.starts_with(L'-');
    if (negative || text.starts_with(L'+'))
        text.remove_prefix(1);
    if (text.empty() || !isDigit(text.front()))
        return std::nullopt;
    std::uint32_t number = 0;
    for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1))
        number = number * 10 + static_cast<std::uint32_t>(text.front() - L'0');
    return negative ? 0 - number : number;
}

// Deliberate: only the first place where key stands in name counts, also when it stands in a directory
// and a whole tag follows later.
std::optional<std::uint32_t> scanBehindFirst(std::wstring_view name, std::wstring_view key,
                                             std::wstring_view tag)
{
    const std::size_t place = name.find(key);
    if (place == std::wstring_view::npos || !name.substr(place).starts_with(tag))
        return std::nullopt;
    return scanNumber(name.substr(place + tag.size()));
}

}  // namespace

LightweightString<wchar_t> MediaFileInfo::makeProxyName(LightweightString<wchar_t> name,
                                                        LightweightString<wchar_t> extension,
                                                        unsigned int height, unsigned char channels)
{
    return stripExtension(name) + L".A" + Qz::WStringFromInteger(channels) + L".proxy." +
           Qz::WStringFromInteger(height) + L"." + extension;
}

unsigned int MediaFileInfo::getProxyHeight(const LightweightString<wchar_t>& name)
{
    // As by a scan with "proxy.%d".
    return scanBehindFirst(name, proxyWord, L"proxy.").value_or(noProxyHeight);
}

unsigned int MediaFileInfo::getProxyAudioChannels(const LightweightString<wchar_t>& name)
{
    // As by a scan with ".A%d".
    return scanBehindFirst(name, L".A", L".A").value_or(0);
}

bool MediaFileInfo::isProxy(const LightweightString<wchar_t>& name)
{
    if (getProxyHeight(name) != noProxyHeight)
        return true;
    if (!OS()->getFileManager()->hasDirectoryPart(name))
        return false;
    return name.find(L"/proxy/proxy-") != LightweightString<wchar_t>::npos;
}

bool MediaFileInfo::hasProxyWord(std::wstring_view text) noexcept
{
    return text.find(proxyWord) != std::wstring_view::npos;
}
