// Makes a weights file ready for ONNX Runtime. A file may declare an initializer as FLOAT and yet
// store it at half precision; the pre-scan expands each such payload, so that every execution
// provider receives one pure single-precision model. It works on the ONNX protobuf encoding
// directly (https://onnx.ai/onnx/repo-docs/IR.html, onnx.proto; wire format:
// https://protobuf.dev/programming-guides/encoding).
#pragma once

#include <string>

#include "backend/ProtobufWire.h"

namespace project_lumen::backend {

// The model in a file, prepared. The file stays as it is. Throws std::runtime_error: what
// ReadModelFile and PrepareModel throw.
Bytes LoadPreparedModel(const std::string& path);

// The model with the payload of every initializer expanded whose data_type is FLOAT and whose
// raw_data holds exactly two bytes an element. Everything else is kept byte for byte, in place; the
// lengths around an expanded payload are written anew. Of a repeated raw_data or data_type the last
// one counts, as in protobuf; dims may be single, packed or both.
//
// Throws std::runtime_error: "Invalid ONNX graph length.", "Invalid ONNX initializer length.",
// "Invalid ONNX raw_data length.", "ONNX initializer dimensions overflow.", "ONNX initializer size
// overflows host size_t.", the errors of ProtobufReader, and that of CheckModelSize for the result.
Bytes PrepareModel(Bytes model);

}  // namespace project_lumen::backend
