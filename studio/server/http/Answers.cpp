#include "studio/http/Answers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "io/files/FileDescriptor.h"
#include "studio/FailureWords.h"
#include "studio/http/JsonText.h"

namespace project_lumen::studio {
namespace {

// A name as RFC 8187 has it in a header.
std::string EncodeName(const std::string& name) {
  std::string encoded;
  for (const char c : name) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
    if (isPlain) {
      encoded += c;
    } else {
      std::array<char, 8> code{};
      std::snprintf(code.data(), code.size(), "%%%02X", static_cast<unsigned char>(c));
      encoded += code.data();
    }
  }
  return encoded;
}

}  // namespace

void AnswerJson(httplib::Response& response, const nlohmann::json& document, int status) {
  response.status = status;
  response.set_content(ToText(document), "application/json");
}

void AnswerError(httplib::Response& response, const ApiError& error) {
  nlohmann::json body = error.Details();
  body["code"] = error.Code();
  body["message"] = error.what();
  AnswerJson(response, {{"error", body}}, error.Status());
}

void AnswerException(httplib::Response& response, const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const ApiError& error) {
    AnswerError(response, error);
  } catch (const std::exception& error) {
    AnswerError(response, {500, "internal", WordsFor(error)});
  } catch (...) {
    AnswerError(response, {500, "internal", "Something unexpected has happened."});
  }
}

void AnswerDownload(httplib::Response& response, const std::string& path, const std::string& name) {
  auto file = std::make_shared<io::FileDescriptor>(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (file->Get() < 0 || fstat(file->Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw NotFound(name + " is not there any more.");
  }
  response.set_header("Content-Disposition", "attachment; filename*=UTF-8''" + EncodeName(name));
  response.set_content_provider(
      static_cast<std::size_t>(status.st_size), "application/octet-stream",
      [file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        std::array<char, 65536> bytes{};
        const ssize_t got = pread(file->Get(), bytes.data(), std::min(bytes.size(), length),
                                  static_cast<off_t>(offset));
        return got > 0 && sink.write(bytes.data(), static_cast<std::size_t>(got));
      });
}

}  // namespace project_lumen::studio
