#include "studio/Settings.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "io/files/ReplacedFile.h"
#include "studio/http/ApiError.h"
#include "studio/http/JsonText.h"

namespace project_lumen::studio {
namespace {

constexpr std::size_t kLongest = 65536;
constexpr const char* kName = "/settings.json";

}  // namespace

Settings::Settings(std::string folder) : folder_(std::move(folder)) {
  std::ifstream file(folder_ + kName, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (text.empty() || text.size() > kLongest) {
    return;
  }
  try {
    object_ = ParseJsonObject(text);
  } catch (const ApiError&) {
    object_ = nlohmann::json::object();
  }
}

nlohmann::json Settings::Get() const {
  const std::lock_guard lock(mutex_);
  return object_;
}

void Settings::Set(const nlohmann::json& object) {
  const std::string text = ToText(object);
  if (text.size() > kLongest) {
    throw TooLarge("The settings are longer than 64 KiB.");
  }
  const std::lock_guard lock(mutex_);
  try {
    std::filesystem::create_directories(folder_);
    io::ReplacedFile file(folder_ + kName);
    std::ofstream stream(file.SafePath(), std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
      throw NoRoom("The settings cannot be written to " + folder_ + ".");
    }
    file.Commit();
  } catch (const std::filesystem::filesystem_error& error) {
    throw NoRoom("The settings cannot be kept in " + folder_ + " (" + error.code().message() +
                 ").");
  } catch (const io::ReplacementError& error) {
    throw NoRoom("The settings cannot be kept in " + folder_ + " (" + error.what() + ").");
  }
  object_ = object;
}

}  // namespace project_lumen::studio
