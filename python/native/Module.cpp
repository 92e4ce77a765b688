// fsys._native: what the package fsys is built on. fsys/_native.pyi has the signatures, fsys/*.py the
// documentation.

#include "Buffers.h"
#include "Clips.h"
#include "Engine.h"
#include "Gil.h"
#include "Locations.h"
#include "Raised.h"
#include "Reader.h"
#include "Recorder.h"
#include "Texts.h"
#include "Watch.h"
#include "support/Log.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace {

void start(const py::str& space, bool discovery)
{
    const LightweightString<wchar_t> folder = texts::toWide(space);
    gil::without([&] { engine::start(folder, discovery); });
}

void addEngine(py::module_& module)
{
    module.def("start", &start, py::arg("space"), py::arg("discovery"));
    module.def("stop", [] { gil::without([] { engine::stop(); }); });
    module.def("is_running", [] { return gil::without([] { return engine::isRunning(); }); });
    module.def("lose_after_fork", &engine::loseAfterFork);
    module.def("interpreter_ends", &gil::interpreterEnds);
}

void addReader(py::module_& module)
{
    py::class_<Data>(module, "Data", py::buffer_protocol(), "Bytes that were read, read-only.")
        .def_buffer(&Data::buffer)
        .def("__len__", [](const Data& data) { return data.bytes.size(); });

    py::class_<Reader>(module, "Reader", "One media file, open for reading.")
        .def_static("of_file", &Reader::ofFile, py::arg("path"))
        .def_static("of_clip", &Reader::ofClip, py::arg("cookie"), py::arg("level"), py::arg("height"))
        .def_property_readonly("path", &Reader::path)
        .def_property_readonly("target", &Reader::target)
        .def_property_readonly("is_open", &Reader::isOpen)
        .def("size", &Reader::size)
        .def("readinto", &Reader::readInto, py::arg("offset"), py::arg("into"))
        .def("read_async", &Reader::readAsync, py::arg("offset"), py::arg("size"), py::arg("callback"))
        .def("readinto_async", &Reader::readIntoAsync, py::arg("offset"), py::arg("into"),
             py::arg("callback"))
        .def("cancel", &Reader::cancel, py::arg("ticket"))
        .def("set_read_ahead", &Reader::setReadAhead, py::arg("size"))
        .def("set_stall_limit", &Reader::setStallLimit, py::arg("limit_ms"))
        .def("counters", &Reader::counters)
        .def("close", &Reader::close);
}

void addRecorder(py::module_& module)
{
    py::class_<Recorder>(module, "Recorder", "One media file that is being recorded.")
        .def_static("of_clip", &Recorder::ofClip, py::arg("cookie"), py::arg("location"),
                    py::arg("extension"), py::arg("proxy_height"), py::arg("proxy_channels"),
                    py::arg("options"))
        .def_static("of_file", &Recorder::ofFile, py::arg("path"), py::arg("options"))
        .def_property_readonly("path", &Recorder::path)
        .def_property_readonly("partial_path", &Recorder::partialPath)
        .def_property_readonly("is_open", &Recorder::isOpen)
        .def("write", &Recorder::write, py::arg("data"))
        .def("flush", &Recorder::flush)
        .def("finish", &Recorder::finish)
        .def("abandon", &Recorder::abandon)
        .def("leave", &Recorder::leave)
        .def("counters", &Recorder::counters)
        .def("take_space_low", &Recorder::takeSpaceLow);
}

void addWatch(py::module_& module)
{
    py::class_<Watch>(module, "Watch", "What happens to clips and locations.")
        .def(py::init<unsigned>(), py::arg("look_ms"))
        .def("next", &Watch::next, py::arg("wait_ms"))
        .def("stop", &Watch::stop)
        .def_property_readonly("is_stopped", &Watch::isStopped);
}

}  // namespace

PYBIND11_MODULE(_native, module)
{
    module.doc() = "The libraries, as the package fsys uses them.";
    // Standard output is the script's.
    setLogToStandardOutput(false);
    translateRaised();
    addEngine(module);
    locations::addTo(module);
    clips::addTo(module);
    addReader(module);
    addRecorder(module);
    addWatch(module);
}
