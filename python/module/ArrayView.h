// NumPy arrays as the library's views: no sample is copied.
#pragma once

#include <pybind11/numpy.h>
#include <nebulex/nebulex.hpp>

namespace nebulex_python {

// The samples of an array of rows x columns or rows x columns x channels, with its own strides. The
// array keeps owning them. Throws pybind11::type_error unless they are uint8, uint16, float32 or
// float64 in the byte order of the machine.
nebulex::View ViewOf(const pybind11::array& image);

// The same for an array to be written. Throws std::domain_error for a read-only one, too.
nebulex::Buffer BufferOf(pybind11::array& result);

}  // namespace nebulex_python
