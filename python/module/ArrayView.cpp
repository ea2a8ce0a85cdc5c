#include "ArrayView.h"

#include <cstdint>

namespace nebulex_python {
namespace py = pybind11;
namespace {

std::int32_t SampleTypeOf(const py::array& image) {
  if (py::isinstance<py::array_t<std::uint8_t>>(image)) {
    return NEBULEX_U8;
  }
  if (py::isinstance<py::array_t<std::uint16_t>>(image)) {
    return NEBULEX_U16;
  }
  if (py::isinstance<py::array_t<float>>(image)) {
    return NEBULEX_F32;
  }
  if (py::isinstance<py::array_t<double>>(image)) {
    return NEBULEX_F64;
  }
  throw py::type_error("samples have to be uint8, uint16, float32 or float64 in native byte order");
}

template <typename Layout, typename Pointer>
Layout Describe(const py::array& image, Pointer data) {
  constexpr py::ssize_t kFlat = 2;
  const bool isFlat = image.ndim() == kFlat;
  if (!isFlat && image.ndim() != kFlat + 1) {
    throw py::value_error("an image has two or three axes");
  }
  Layout layout = {};
  layout.data = data;
  layout.height = image.shape(0);
  layout.width = image.shape(1);
  layout.channels = isFlat ? 1 : static_cast<std::int32_t>(image.shape(2));
  layout.sample_type = SampleTypeOf(image);
  layout.row_stride = image.strides(0);
  layout.pixel_stride = image.strides(1);
  // NumPy gives the stride of an axis of length 1 no meaning.
  layout.channel_stride = layout.channels == 1 ? 0 : image.strides(2);
  return layout;
}

}  // namespace

nebulex::View ViewOf(const py::array& image) {
  return Describe<nebulex::View>(image, image.data());
}

nebulex::Buffer BufferOf(py::array& result) {
  return Describe<nebulex::Buffer>(result, result.mutable_data());
}

}  // namespace nebulex_python
