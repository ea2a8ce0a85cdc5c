// What an OnnxRuntimeBackend owns.
#pragma once

#include <string>

#include "backend/ExecutionProviders.h"
#include "backend/MessageCallback.h"
#include "backend/OrtHandles.h"
#include "backend/ProtobufWire.h"
#include "backend/Turns.h"

namespace project_lumen::backend {

// The members' order is the order of their creation; they are released from the last to the first.
struct BackendState {
  EnvironmentHandle environment;
  SessionOptionsHandle options;  // of the active session, once there is one
  Bytes model;                   // the prepared model that every session is created from
  SessionHandle session;         // null until a provider is accepted
  std::string inputName;
  std::string outputName;
  std::string providerName = kCpuProviderName;
  MessageCallback messages;
  Turns turns;  // of the tiles in the session
};

}  // namespace project_lumen::backend
