// SPDX-License-Identifier: MIT
// The compiled part of the package: what has to be done without the interpreter's lock, and as little else as possible.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "camera_binding.h"
#include "frame_binding.h"
#include "job.h"
#include "listing.h"

#ifdef Py_GIL_DISABLED
#error "This package relies on the interpreter's lock; build it for a Python that has it."
#endif

namespace py = pybind11;

namespace {

/// Raises ImportError in a subinterpreter: the library's list of cameras, and this binding's types, belong to a
/// process.
PyObject* checkInterpreter(PyObject*, PyObject*)
{
    if (PyInterpreterState_Get() == PyInterpreterState_Main())
        Py_RETURN_NONE;
    PyErr_SetString(PyExc_ImportError,
                    "vornccd works in the main interpreter only, not in subinterpreters; use threads or processes");
    return nullptr;
}

// Not made with pybind11, whose functions are no use in an interpreter that did not import them.
PyMethodDef checkMethod = {"check_interpreter", checkInterpreter, METH_NOARGS, nullptr};

std::unique_ptr<vornpy::Job> list()
{
    return std::make_unique<vornpy::Job>([](vornpy::Job::State&) -> vornpy::Deliver {
        return [all = vornpy::listed()]() -> py::object {
            py::list rows;
            for (const vornpy::Listed& one : all)
                rows.append(py::make_tuple(one.index, one.name, one.port, one.ours));
            return rows;
        };
    });
}

PyObject* makeModule()
{
    PYBIND11_CHECK_PYTHON_VERSION
    PYBIND11_ENSURE_INTERNALS_READY
    static PyModuleDef definition;
    auto module = py::module_::create_extension_module("_core", nullptr, &definition);
    try {
        module.add_object("check_interpreter", PyCFunction_New(&checkMethod, nullptr));
        module.attr("version") = VORNCCD_VERSION;
        module.def("list", &list);
        vornpy::bindCamera(module);
        vornpy::bindFrame(module);
        return module.ptr();
    }
    PYBIND11_CATCH_INIT_EXCEPTIONS
}

}  // namespace

// What PYBIND11_MODULE makes, but for the question asked first: in a subinterpreter pybind11 itself would wait for
// ever.
extern "C" PYBIND11_EXPORT PyObject* PyInit__core();
extern "C" PYBIND11_EXPORT PyObject* PyInit__core()
{
    PyObject* allowed = checkInterpreter(nullptr, nullptr);
    if (allowed == nullptr)
        return nullptr;
    Py_DECREF(allowed);
    return makeModule();
}
