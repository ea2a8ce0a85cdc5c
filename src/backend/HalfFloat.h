// Half-precision numbers (IEEE 754 binary16) as single-precision ones (binary32).
#pragma once

#include "backend/ProtobufWire.h"

namespace project_lumen::backend {

// Little-endian half values to little-endian single values, twice the bytes. Exact: no rounding;
// infinities, NaN payloads, subnormals and signed zeros are kept. Throws std::runtime_error
// "Invalid FP16 ONNX initializer byte count." for an odd number of bytes.
Bytes ConvertHalfToFloatBytes(ByteView bytes);

}  // namespace project_lumen::backend
