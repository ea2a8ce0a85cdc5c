// The forms that answers have.
#pragma once

#include <httplib.h>

#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include "studio/http/ApiError.h"

namespace project_lumen::studio {

void AnswerJson(httplib::Response& response, const nlohmann::json& document, int status = 200);
void AnswerError(httplib::Response& response, const ApiError& error);

// The answer to whatever a handler has thrown.
void AnswerException(httplib::Response& response, const std::exception_ptr& exception);

// A file as a download, in pieces. Throws std::runtime_error where it cannot be read.
void AnswerDownload(httplib::Response& response, const std::string& path, const std::string& name);

}  // namespace project_lumen::studio
