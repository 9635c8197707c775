// SPDX-License-Identifier: MIT
#pragma once

#include <cxxabi.h>
#include <Python.h>
#include <unistd.h>

namespace vornpy {

/// Gives the interpreter's lock to other threads while this object lives; none of them is kept from running.
///
/// An interpreter that ends stops its daemon threads where they take the lock back, by unwinding them. pybind11's own
/// guard meets that in a destructor, where it ends the process by std::terminate. Here the thread stops for ever
/// instead, and the process ends as it would have without it.
class InterpreterReleased {
public:
    InterpreterReleased() : state_(PyEval_SaveThread()) {}
    ~InterpreterReleased()
    {
        try {
            PyEval_RestoreThread(state_);
        } catch (abi::__forced_unwind&) {
            while (true)
                pause();
        }
    }
    InterpreterReleased(const InterpreterReleased&) = delete;
    InterpreterReleased& operator=(const InterpreterReleased&) = delete;

private:
    PyThreadState* state_;
};

}  // namespace vornpy
