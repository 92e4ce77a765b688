#include "Metrics.h"

#include "Answer.h"

#include <array>
#include <cstdio>

namespace {

std::string escapedLabel(const std::string& value)
{
    std::string escaped;
    for (const char c : Json::parse(jsonLine(Json(value))).get<std::string>())
        if (c == '\n')
            escaped += "\\n";
        else if (c == '\\' || c == '"')
            (escaped += '\\') += c;
        else
            escaped += c;
    return escaped;
}

}  // namespace

void Metrics::family(const std::string& name, const std::string& type, const std::string& help)
{
    name_ = name;
    text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

void Metrics::sample(const Labels& labels, double value)
{
    text_ += name_;
    const char* separator = "{";
    for (const auto& [label, text] : labels) {
        text_ += separator + label + "=\"" + escapedLabel(text) + "\"";
        separator = ",";
    }
    std::array<char, 40> number{};
    std::snprintf(number.data(), number.size(), "%s %.17g\n", labels.empty() ? "" : "}", value);
    text_ += number.data();
}
