#include "Raised.h"

#include "Texts.h"

namespace py = pybind11;

py::object Raised::object() const
{
    return py::module_::import("fsys._errors").attr("make")(code_, texts::fromUtf8(text_), platformCode_);
}

void translateRaised()
{
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown)
                std::rethrow_exception(thrown);
        } catch (const Raised& raised) {
            const py::object object = raised.object();
            PyErr_SetObject(py::type::of(object).ptr(), object.ptr());
        }
    });
}
