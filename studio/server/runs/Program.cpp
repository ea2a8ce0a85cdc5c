#include "studio/runs/Program.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <set>
#include <stdexcept>

#include "common/NumberText.h"
#include "studio/http/ApiError.h"
#include "studio/runs/ChildProcess.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

constexpr const char* kSchema = "nebulexastro.cli.machine-info.v1";

ApiError NoProgram(const std::string& message) {
  return {424, "no_program", message};
}

std::string ReadStandardOutput(const std::string& program) {
  constexpr std::chrono::seconds kPatience{20};
  constexpr std::size_t kLongest = std::size_t{1} << 22U;
  const auto begin = std::chrono::steady_clock::now();
  std::string text;
  ChildRun run;
  run.arguments = {program, "--machine-info"};
  run.output = ChildOutput::kStandardOutput;
  run.takeLine = [&](std::string_view line) {
    if (text.size() < kLongest) {
      text += line;
      text += '\n';
    }
  };
  run.shallStop = [&] { return std::chrono::steady_clock::now() - begin > kPatience; };
  const ChildEnd end = RunChild(run);
  if (end.isStopped) {
    throw std::runtime_error(program + " did not say what it can do.");
  }
  if (end.signal != 0 || end.status != 0) {
    throw std::runtime_error(program + " failed when it was asked what it can do.");
  }
  return text;
}

bool IsUsable(const Json& info) {
  const Json::json_pointer machine("/progress/machine/option");
  if (!info.is_object() || !info.contains("options") || !info["options"].is_array() ||
      !info.contains(machine) || !info[machine].is_string()) {
    return false;
  }
  for (const Json& option : info["options"]) {
    const bool hasTexts = option.is_object() && option.value("name", Json()).is_string() &&
                          option.value("type", Json()).is_string() &&
                          option.value("mode", Json()).is_string();
    if (!hasTexts || !option.value("flags", Json()).is_array() || option["flags"].empty() ||
        !option["flags"].back().is_string()) {
      return false;
    }
  }
  return true;
}

Json ReadInfo(const std::string& program) {
  const std::string text = ReadStandardOutput(program);
  Json info = Json::parse(text, nullptr, false);
  const std::string schema =
      info.is_object() && info.value("schema", Json()).is_string() ? info["schema"] : "";
  if (schema != kSchema) {
    throw std::runtime_error(program + " speaks " +
                             (schema.empty() ? "no known language" : schema) + ", not " + kSchema +
                             ".");
  }
  if (!IsUsable(info)) {
    throw std::runtime_error(program + " describes itself incompletely.");
  }
  return info;
}

const Json* FindOption(const Json& info, const std::string& name) {
  for (const Json& option : info["options"]) {
    if (option["name"] == name) {
      return &option;
    }
  }
  return nullptr;
}

bool IsChosenByPerson(const Json& info, const Json& option) {
  const std::string name = option["name"];
  return option["mode"] == "processing" && !option.value("creates_output", false) &&
         name != "input" && name != "quiet" &&
         name != info.at(Json::json_pointer("/progress/machine/option"));
}

bool IsOn(const Json& chosen, const std::string& name) {
  const auto member = chosen.find(name);
  return member != chosen.end() && !member->is_null() && *member != Json(false);
}

[[noreturn]] void RefuseOption(const Json& option, const std::string& what) {
  throw BadRequest(option["flags"].back().get<std::string>() + " " + what + ".");
}

double Limit(const Json& option, const char* name, double fallback) {
  const auto member = option.find(name);
  return member != option.end() && member->is_number() ? member->get<double>() : fallback;
}

void CheckNumber(const Json& option, const Json& value) {
  if (!value.is_number() || !std::isfinite(value.get<double>())) {
    RefuseOption(option, "takes a number");
  }
  const auto number = value.get<double>();
  const bool isInteger = option["type"] == "integer";
  const bool isEven = option.value(Json::json_pointer("/constraints/even"), false);
  if (isInteger && number != std::floor(number)) {
    RefuseOption(option, "takes a whole number");
  }
  if (isEven && std::fmod(number, 2.0) != 0.0) {
    RefuseOption(option, "takes an even number");
  }
  if (number < Limit(option, "minimum", number) || number > Limit(option, "maximum", number) ||
      number <= Limit(option, "exclusive_minimum", -HUGE_VAL) ||
      number >= Limit(option, "exclusive_maximum", HUGE_VAL)) {
    RefuseOption(option, "does not take " + value.dump());
  }
}

std::string NumberArgument(const Json& option, const Json& value) {
  CheckNumber(option, value);
  char text[64];
  const auto number = value.get<double>();
  const auto end = option["type"] == "integer"
                       ? std::to_chars(text, text + sizeof text, std::llround(number))
                       : std::to_chars(text, text + sizeof text, number);
  return {text, end.ptr};
}

std::string ValueArgument(const Json& option, const Json& value, const FileResolver& pathOfFile) {
  if (option["type"] == "path") {
    if (!value.is_string()) {
      RefuseOption(option, "takes a file that was chosen");
    }
    return pathOfFile(value.get<std::string>());
  }
  return NumberArgument(option, value);
}

}  // namespace

void Program::Ask() {
  Json info;
  std::string error;
  try {
    info = ReadInfo(path_);
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  const std::lock_guard lock(mutex_);
  info_ = std::move(info);
  error_ = error;
}

Json Program::Describe() const {
  const std::lock_guard lock(mutex_);
  return {{"found", !info_.is_null()},
          {"path", path_},
          {"error", error_.empty() ? Json(nullptr) : Json(error_)},
          {"machine_info", info_}};
}

Json Program::Info() const {
  const std::lock_guard lock(mutex_);
  if (info_.is_null()) {
    throw NoProgram(error_);
  }
  return info_;
}

std::vector<std::string> OptionArguments(const Json& info, const Json& chosen,
                                         const FileResolver& pathOfFile) {
  if (!chosen.is_object()) {
    throw BadRequest("\"options\" has to be an object.");
  }
  for (const auto& [name, value] : chosen.items()) {
    const Json* option = FindOption(info, name);
    if (option == nullptr || !IsChosenByPerson(info, *option)) {
      throw BadRequest("There is no option " + name + " to choose.");
    }
  }
  std::vector<std::string> arguments;
  for (const Json& option : info["options"]) {
    const std::string name = option["name"];
    if (!IsOn(chosen, name)) {
      continue;
    }
    const std::string needed = option.value("requires", "");
    if (!needed.empty() && !IsOn(chosen, needed)) {
      RefuseOption(option, "needs " + FlagOf(info, needed));
    }
    arguments.push_back(option["flags"].back());
    if (option["type"] != "boolean") {
      arguments.push_back(ValueArgument(option, chosen[name], pathOfFile));
    } else if (chosen[name] != Json(true)) {
      RefuseOption(option, "is a switch");
    }
  }
  return arguments;
}

std::string FlagOf(const Json& info, const std::string& name) {
  const Json* option = FindOption(info, name);
  if (option == nullptr) {
    throw NoProgram("The program has no option " + name + ".");
  }
  return (*option)["flags"].back();
}

int SmallestSide(const Json& info, const Json& chosen) {
  constexpr int kFallback = 512;
  const bool isUpsampled = IsOn(chosen, "upsample");
  const Json::json_pointer place(isUpsampled ? "/io/images/dimensions/with_upsample/minimum_width"
                                             : "/io/images/dimensions/default/minimum_width");
  return info.contains(place) && info[place].is_number_integer() ? info[place].get<int>()
                                                                 : kFallback;
}

}  // namespace project_lumen::studio
