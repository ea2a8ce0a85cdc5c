// Reading and writing as many bytes as asked for.
#pragma once

#include <cstddef>
#include <cstdint>

namespace project_lumen::studio {

// Throws ApiError 507 where the disk does not take all of it.
void WriteAll(int file, const void* bytes, std::size_t count, std::int64_t offset);

// Throws std::runtime_error where the file does not give all of it.
void ReadAll(int file, void* bytes, std::size_t count, std::int64_t offset);

}  // namespace project_lumen::studio
