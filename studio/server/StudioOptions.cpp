#include "studio/StudioOptions.h"

#include <tclap/CmdLine.h>

#include <stdexcept>

namespace project_lumen::studio {

std::optional<StudioOptions> ParseStudioOptions(std::span<const char* const> arguments) {
  constexpr int kHighestPort = 65535;
  TCLAP::CmdLine line(
      "Opens a page in the browser of this computer to look at astronomical images, to take their "
      "stars out with nebulex2, to compare, and to put some of the stars back. Ctrl-C ends it.",
      ' ', NEBULEX_VERSION);
  TCLAP::ValueArg<std::string> program(
      "", "program", "The nebulex2 to run; the one beside this program unless it is given", false,
      "", "path", line);
  TCLAP::SwitchArg noBrowser("", "no-browser", "Prints the address and opens no browser", line);
  TCLAP::ValueArg<int> port("", "port", "Port of the address; any free one unless it is given",
                            false, 0, "number", line);
  TCLAP::MultiArg<std::string> folders(
      "", "folder",
      "A folder that the page may open images from and keep results in, with all below it. May be "
      "given more than once. Without any, and without images, the home folder",
      false, "path", line);
  TCLAP::UnlabeledMultiArg<std::string> images(
      "image", "Images to open; their folders are opened with them", false, "image", line);
  line.setExceptionHandling(false);
  try {
    std::vector<std::string> words(arguments.begin(), arguments.end());
    line.parse(words);
  } catch (const TCLAP::ExitException&) {
    return std::nullopt;
  } catch (const TCLAP::ArgException& error) {
    throw std::invalid_argument(error.error() + " " + error.argId());
  }
  if (port.getValue() < 0 || port.getValue() > kHighestPort) {
    throw std::invalid_argument("--port has to lie within 0 and 65535.");
  }
  return StudioOptions{images.getValue(), folders.getValue(), port.getValue(),
                       !noBrowser.getValue(), program.getValue()};
}

}  // namespace project_lumen::studio
