#include "Texts.h"

#include "Qz/Utf8.h"

#include <memory>

namespace py = pybind11;

namespace texts {

py::str toPython(std::wstring_view text)
{
    PyObject* const made = PyUnicode_FromWideChar(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (!made)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(made);
}

py::str fromUtf8(std::string_view text) { return toPython(::fromUTF8(text)); }

Wide toWide(const py::str& text)
{
    // With nullptr in place of the size a zero character inside is an error.
    const std::unique_ptr<wchar_t, void (*)(void*)> characters(
        PyUnicode_AsWideCharString(text.ptr(), nullptr), &PyMem_Free);
    if (!characters)
        throw py::error_already_set();
    return Wide(characters.get());
}

py::object toPython(DriveId location)
{
    if (!location.valid())
        return py::none();
    const auto character = static_cast<wchar_t>(static_cast<unsigned char>(location.asChar()));
    return toPython(std::wstring_view(&character, 1));
}

DriveId toLocation(const py::str& text)
{
    const Wide id = toWide(text);
    return id.size() == 1 && id[0] <= 0xFF ? DriveId(static_cast<char>(id[0])) : DriveId();
}

}  // namespace texts
