// The test function set of qzhost-test: functions that let whole-process tests drive the
// call host without ODBC (a chosen status, a sleep for SIGTERM during a call, by-reference
// writes).
#include <time.h>

#include "qzfuncs.hpp"

namespace {

int Nothing() {
  return 0;
}

int ReturnStatus(int status) {
  return status;
}

// Sleeps `ms` milliseconds inside the call; SIGTERM may arrive meanwhile.
int Sleep(int ms) {
  struct timespec ts {
    ms / 1000, (ms % 1000) * 1000000L
  };
  while (nanosleep(&ts, &ts) != 0) {
  }
  return 0;
}

int SetInt(int *var, int value) {
  *var = value;
  return 0;
}

constexpr std::array kFunctions{
    qz::fn::func<Nothing>("Nothing"),
    qz::fn::func<ReturnStatus>("ReturnStatus", {{"Status", IntByValue}}),
    qz::fn::func<Sleep>("Sleep", {{"Millis", IntByValue}}),
    qz::fn::func<SetInt>("SetInt", {{"Var", IntByReference}, {"Value", IntByValue}}),
};

}  // namespace

QZ_FUNCTION_SET(kFunctions)

void dll_setup() {}
void dll_cleanup() {}
