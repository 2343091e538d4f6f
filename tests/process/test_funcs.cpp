// The test function set of qzhost-test: functions that let whole-process tests drive the
// call host without ODBC. Between them they take all ten prototype types and report what
// they received (into a string variable, or on standard error for introspection), plus a
// chosen status, a sleep (SIGTERM during a call), callbacks and allocation failures.
#include <signal.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "qzfuncs.hpp"

namespace {

// Stores `text` into an interpreter string, status 18 when it does not fit.
int put(QzStr *out, const std::string &text) {
  return str2QzStr(text.c_str(), out);
}

std::string num(double d) {
  char b[40];
  std::snprintf(b, sizeof b, "%.17g", d);
  return b;
}

int elements(const void *slot) {
  QzArgInfoRec *info = QzArgInfo(slot);
  return info ? info->elcnt : 0;
}

const char *type_name(int type) {
  for (const QzArgTypeName *t = QzArgTypeNames;; ++t)
    if (t->type == type || t->type == -1) return t->name;
}

int Nothing() {
  return 0;
}

int ReturnStatus(int status) {
  return status;
}

volatile sig_atomic_t interrupted = 0;  // set by dll_interrupt

// Sleeps `ms` milliseconds inside the call; SIGTERM may arrive meanwhile. An interrupt ends
// the sleep early with status 4.
int Sleep(int ms) {
  interrupted = 0;
  struct timespec ts {
    ms / 1000, (ms % 1000) * 1000000L
  };
  while (nanosleep(&ts, &ts) != 0)
    if (interrupted) return 4;
  return 0;
}

int SetInt(int *var, int value) {
  *var = value;
  return 0;
}

int DllDebug(int level) {
  dll_debug = level;
  return 0;
}

// The n-th allocation from the next call on fails.
int FailAlloc(int n) {
  dll_alloc_fail_at(n);
  return 0;
}

int IntValue(int v, QzStr *out) {
  return put(out, std::to_string(v));
}

int RealValue(double d, QzStr *out) {
  return put(out, num(d));
}

int ZStr(char *s, QzStr *out) {
  int st = put(out, s);
  if (std::strlen(s) >= 3) std::memcpy(s, "ABC", 3);  // only the copy changes
  return st;
}

int SetString(QzStr *s, const char *value) {
  return str2QzStr(value, s);
}

// Reports the integers, then doubles each in place.
int IntArr(int *a, QzStr *out) {
  std::string r;
  for (int k = 0; k < elements(a); ++k) {
    if (k) r += ",";
    r += std::to_string(a[k]);
    a[k] *= 2;
  }
  return put(out, r);
}

// Reports the value received, then stores `v` into the variable.
int RealRef(double *d, double v, QzStr *out) {
  int st = put(out, num(*d));
  *d = v;
  return st;
}

int RealArr(double *d, QzStr *out) {
  std::string r;
  for (int k = 0; k < elements(d); ++k) {
    if (k) r += ",";
    r += num(d[k]);
    d[k] = -d[k];
  }
  return put(out, r);
}

int StrArr(QzStr *s, QzStr *out) {
  std::string r;
  for (int k = 0; k < elements(s); ++k) {
    if (k) r += ",";
    r.append(s[k].text, static_cast<std::size_t>(s[k].len));
    int st = put(&s[k], std::string("S").append(std::to_string(k)));
    if (st) return st;
  }
  return put(out, r);
}

// Reports every variable argument as resolved type, element count and values; then
// changes each variable: integers +1, reals to 2.5, strings to ABC.
int Describe(QzStr *out, QzVarArgs va) {
  std::string r;
  for (int k = 0; k < QzFuncInfo()->arg_cnt - 1; ++k) {
    void *slot = va.slot[k];
    QzArgInfoRec *info = QzArgInfo(slot);
    if (!info) return -2;
    if (k) r += ";";
    r += type_name(info->type);
    r += "[";
    r += std::to_string(info->elcnt);
    r += "]=";
    for (int e = 0; e < info->elcnt; ++e) {
      if (e) r += ",";
      switch (info->type) {
        case IntByReference:
        case IntArray:
          r += std::to_string(static_cast<int *>(slot)[e]);
          static_cast<int *>(slot)[e] += 1;
          break;
        case RealByReference:
        case RealArray:
          r += num(static_cast<double *>(slot)[e]);
          static_cast<double *>(slot)[e] = 2.5;
          break;
        default: {
          QzStr &s = static_cast<QzStr *>(slot)[e];
          r += '"';
          r.append(s.text, static_cast<std::size_t>(s.len));
          r += '"';
          if (put(&s, "ABC")) return 18;
        }
      }
    }
  }
  return put(out, r);
}

// Introspection as the ODBC functions use it, reported on standard error: the call, then
// each slot's description and each position's.
int Probe(int, int, QzVarArgs va) {
  QzFuncInfoRec *f = QzFuncInfo();
  std::fprintf(stderr, "func %s %d\n", f->name, f->arg_cnt);
  auto show = [](const char *what, int k, QzArgInfoRec *i) {
    if (i)
      std::fprintf(stderr, "%s %d: %s %s %d\n", what, k, type_name(i->type), i->name, i->elcnt);
    else
      std::fprintf(stderr, "%s %d: null\n", what, k);
  };
  show("first", 0, QzArgInfo(va.slot[0]));  // null when no variable argument was passed
  for (int k = 0; k < f->arg_cnt - 2; ++k)
    show("slot", k, QzArgInfo(va.slot[k]));
  for (int k = 0; k <= f->arg_cnt; ++k)
    show("pos", k, QzArgInfo(reinterpret_cast<const void *>(static_cast<std::intptr_t>(k))));
  std::fflush(stderr);
  return 0;
}

int CallbackTwice(int c1, int c2, int *a1, int *a2) {
  *a1 = dll_callback(c1);
  *a2 = dll_callback(c2);
  return 0;
}

// Sleeps, then calls back: an answer that arrived meanwhile is already pending. Returns
// the answer plus one.
int CallbackAfter(int ms, int code) {
  Sleep(ms);
  return dll_callback(code) + 1;
}

constexpr std::array kFunctions{
    qz::fn::func<Nothing>("Nothing"),
    qz::fn::func<ReturnStatus>("ReturnStatus", {{"Status", IntByValue}}),
    qz::fn::func<Sleep>("Sleep", {{"Millis", IntByValue}}),
    qz::fn::func<SetInt>("SetInt", {{"Var", IntByReference}, {"Value", IntByValue}}),
    qz::fn::func<DllDebug>("DllDebug", {{"DebugLevel", IntByValue}}),
    qz::fn::func<FailAlloc>("FailAlloc", {{"N", IntByValue}}),
    qz::fn::func<IntValue>("IntValue", {{"Value", IntByValue}, {"Out", String}}),
    qz::fn::func<RealValue>("RealValue", {{"Value", RealByValue}, {"Out", String}}),
    qz::fn::func<ZStr>("ZStr", {{"Text", zString}, {"Out", String}}),
    qz::fn::func<SetString>("SetString", {{"Var", String}, {"Value", zString}}),
    qz::fn::func<IntArr>("IntArr", {{"Ints", IntArray, 2}, {"Out", String}}),
    qz::fn::func<RealRef>("RealRef",
                          {{"Var", RealByReference}, {"Value", RealByValue}, {"Out", String}}),
    qz::fn::func<RealArr>("RealArr", {{"Reals", RealArray}, {"Out", String}}),
    qz::fn::func<StrArr>("StrArr", {{"Strings", StringArray}, {"Out", String}}),
    qz::fn::func<Describe>("Describe", {{"Out", String}, {"...", VarArg}}),
    qz::fn::func<Probe>("Probe",
                        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"...", VarArg}}),
    qz::fn::func<CallbackTwice>("CallbackTwice", {{"Code1", IntByValue},
                                                  {"Code2", IntByValue},
                                                  {"Answer1", IntByReference},
                                                  {"Answer2", IntByReference}}),
    qz::fn::func<CallbackAfter>("CallbackAfter", {{"Millis", IntByValue}, {"Code", IntByValue}}),
};

}  // namespace

QZ_FUNCTION_SET(kFunctions)

void dll_setup() {}
void dll_cleanup() {}
void dll_interrupt() {
  interrupted = 1;
}
