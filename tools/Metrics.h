#pragma once

#include <string>
#include <utility>
#include <vector>

// Metrics: text of the form that Prometheus collects: families of samples, each with its help and its type.
//
// Bytes of names that are not UTF-8 become U+FFFD.
class Metrics
{
public:
    using Labels = std::vector<std::pair<std::string, std::string>>;

    // Begins a family; the samples that follow are its own. type: "gauge" or "counter".
    void family(const std::string& name, const std::string& type, const std::string& help);
    void sample(const Labels& labels, double value);
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
    std::string name_;
};
