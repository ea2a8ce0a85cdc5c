#include "lib/Messages.h"

namespace project_lumen::lib {

void SendMessage(nebulex_message_fn function, void* context, const Diagnostic& record) {
  if (function != nullptr) {
    const auto severity = record.severity == "warning" ? NEBULEX_WARNING : NEBULEX_INFO;
    function(context, severity, record.code.c_str(), record.message.c_str());
  }
}

}  // namespace project_lumen::lib
