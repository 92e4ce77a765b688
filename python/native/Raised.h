#pragma once

#include "media/MediaError.h"

#include <exception>
#include <pybind11/pybind11.h>
#include <string>

// Raised: what a function of the module throws to have fsys.Error, or the class of its code, raised.
//
// The libraries throw nothing; this begins and ends inside the module.
class Raised : public std::exception
{
public:
    explicit Raised(const MediaError& error)
        : code_(nameOf(error.code)), text_(error.text), platformCode_(error.platformCode)
    {}
    // For what has no MediaErrorCode. The codes of all are listed in fsys/_errors.py.
    Raised(std::string code, std::string text) : code_(std::move(code)), text_(std::move(text)) {}

    // The exception object of Python. REQUIRES: the interpreter's lock.
    [[nodiscard]] pybind11::object object() const;
    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string code_;
    std::string text_;
    unsigned platformCode_ = 0;
};

// Has pybind11 turn every Raised into its exception object.
void translateRaised();
