// dll_main: carries out one call described by the call block. Finds the function by name,
// checks and converts every argument against its prototype, calls it through QzCall,
// writes by-reference results back in the interpreter's forms and releases the
// conversion buffers. Also the dispatcher trace on standard error and the introspection
// of the running call (QzFuncInfo, QzArgInfo).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host.hpp"
#include "qzmath.h"

// Conversion kinds: what a slot of QzAv holds.
enum {
  CV_DIRECT = 0,   // address of the integer(s) in the call block
  CV_STRDESC = 1,  // array of QzStr descriptors over the call block
  CV_ZSTRING = 2,  // NUL-terminated copy of element 0
  CV_INT2DBL = 3,  // array of doubles from integers
  CV_DEC2INT = 4,  // array of int32 from decimals
  CV_DEC2DBL = 5,  // array of doubles from decimals
};

constexpr int kMaxArgs = 50;  // arguments besides the name

void *QzAv[kMaxArgs];                // value handed to the function for each argument
int QzCv[kMaxArgs];                  // conversion kind of each slot; non-zero: owned buffer
const QzFuncDesc *QzFunc = nullptr;  // function being called; stays set after the call
int QzFunc_arg_cnt = 0;              // arguments of the call, the name not counted

namespace {

using qz::wire::get32;
using qz::wire::put32;

// Accepted combinations: conversion kind by prototype type (row) and interpreter type
// (column INTEGER, REAL, STRING); -1 means status 8.
constexpr int kAccept[10][3] = {
    {CV_DIRECT, CV_DEC2DBL, CV_STRDESC},  // VarArg
    {CV_DIRECT, CV_DEC2INT, -1},          // IntByValue
    {CV_DIRECT, -1, -1},                  // IntByReference
    {CV_DIRECT, -1, -1},                  // IntArray
    {CV_INT2DBL, CV_DEC2DBL, -1},         // RealByValue
    {-1, CV_DEC2DBL, -1},                 // RealByReference
    {-1, CV_DEC2DBL, -1},                 // RealArray
    {-1, -1, CV_ZSTRING},                 // zString
    {-1, -1, CV_STRDESC},                 // String
    {-1, -1, CV_STRDESC},                 // StringArray
};

const char *type_name(int type) {
  const QzArgTypeName *t = QzArgTypeNames;
  while (t->type != -1 && t->type != type)
    ++t;
  return t->name;
}

unsigned char *element(const t_DLL_ARG &a, int k) {
  return a.ptr + 4 * static_cast<std::ptrdiff_t>(a.elsz) * k;
}

const t_DECIMAL *decimal_at(const t_DLL_ARG &a, int k) {
  return reinterpret_cast<const t_DECIMAL *>(element(a, k));
}

// The concrete type of a VarArg prototype, by the interpreter type of its argument.
int resolve_vararg(const t_DLL_ARG &a) {
  bool array = a.elcnt > 1;
  switch (a.type) {
    case DLL_INTEGER:
      return array ? IntArray : IntByReference;
    case DLL_REAL:
      return array ? RealArray : RealByReference;
    case DLL_STRING:
      return array ? StringArray : String;
    default:
      return VarArg;
  }
}

// Call argument i with its prototype entry and concrete type. argi is the entry's
// position; a VarArg entry stays current for every argument after it.
struct ResolvedArg {
  t_DLL_ARG a;             // the argument as the block describes it
  const QzArgDesc *proto;  // its prototype entry
  int type;                // the entry's type, VarArg resolved
};

ResolvedArg resolve_arg(const QzFuncDesc *f, int i, int &argi) {
  ResolvedArg r{u_get_arg(i + 1), &QzArgList[f->first_arg + argi], 0};
  r.type = r.proto->type;
  if (r.type == VarArg) {
    --argi;
    r.type = resolve_vararg(r.a);
  }
  return r;
}

bool is_array(int type) {
  return type == IntArray || type == RealArray || type == StringArray;
}

void dump_value(int kind, const void *value, int count) {
  for (int k = 0; k < count; ++k) {
    if (count > 1) std::fprintf(stderr, "  [%2d] ", k);
    switch (kind) {
      case CV_DIRECT:
      case CV_DEC2INT:
        std::fprintf(stderr, "%d", get32(value, 4 * static_cast<std::size_t>(k)));
        break;
      case CV_STRDESC: {
        const QzStr &s = static_cast<const QzStr *>(value)[k];
        std::fprintf(stderr, "\"%.*s\"", s.len, s.text);
        break;
      }
      case CV_ZSTRING:
        std::fprintf(stderr, "\"%s\"", static_cast<const char *>(value));
        break;
      case CV_INT2DBL:
      case CV_DEC2DBL:
        std::fprintf(stderr, "%1.15g", static_cast<const double *>(value)[k]);
        break;
      default:
        std::fputs("*ERROR*", stderr);
    }
    if (count > 1) std::fputc('\n', stderr);
  }
}

void trace_value(const QzArgDesc &proto, int resolved, int slot, int elcnt) {
  std::fprintf(stderr, " %s", proto.name);
  if (is_array(resolved)) {
    std::fprintf(stderr, " = array [%d]\n", elcnt);
    dump_value(QzCv[slot], QzAv[slot], elcnt);
  } else {
    std::fputs(" = ", stderr);
    dump_value(QzCv[slot], QzAv[slot], 1);
    std::fputc('\n', stderr);
  }
}

// The raw call block at entry (lines end in CR LF).
void trace_block() {
  int n = u_get_argc();
  std::fprintf(stderr, "dll base = %p\r\n", static_cast<void *>(u_get_baseptr()));
  std::fprintf(stderr, "argc = %d\r\n", n);
  const unsigned char *first = n > 0 ? u_get_arg(0).ptr : nullptr;
  for (int i = 0; i < n; ++i) {
    t_DLL_ARG a = u_get_arg(i);
    const char *tn = a.type == DLL_INTEGER  ? "DLL_INTEGER"
                     : a.type == DLL_REAL   ? "DLL_REAL"
                     : a.type == DLL_STRING ? "DLL_STRING"
                                            : "DLL_???";
    std::fprintf(stderr, "# %d\r\n", i);
    std::fprintf(stderr, "type   = %s\r\n", tn);
    std::fprintf(stderr, "ptr    = %p\r\n", static_cast<void *>(a.ptr));
    std::fprintf(stderr, "ofs    = %d\r\n", static_cast<int>(a.ptr - first));
    std::fprintf(stderr, "maxlen = %d\r\n", a.maxlen);
    std::fprintf(stderr, "elsz   = %d\r\n", a.elsz);
    std::fprintf(stderr, "elcnt  = %d\r\n", a.elcnt);
    if (a.type == DLL_STRING) {
      int len = get32(a.ptr, 0);
      std::fprintf(stderr, "= \"%*.*s\"\r\n", len, len, reinterpret_cast<const char *>(a.ptr + 4));
    } else if (a.type == DLL_INTEGER) {
      std::fprintf(stderr, "= %d\r\n", get32(a.ptr, 0));
    } else if (a.type == DLL_REAL) {
      std::fprintf(stderr, "= %08x %08x %08x\r\n", static_cast<unsigned>(get32(a.ptr, 0)),
                   static_cast<unsigned>(get32(a.ptr, 4)), static_cast<unsigned>(get32(a.ptr, 8)));
    }
  }
}

void trace_check(const QzArgDesc &proto, const t_DLL_ARG &a) {
  std::fprintf(stderr, " arg = %s", proto.name);
  std::fprintf(stderr, ", %s", type_name(proto.type));
  std::fputs(", CALL = ", stderr);
  if (a.type == DLL_INTEGER) std::fputs("INTEGER", stderr);
  if (a.type == DLL_REAL) std::fputs("REAL", stderr);
  if (a.type == DLL_STRING) std::fputs("STRING", stderr);
  std::fprintf(stderr, ", elcnt = %d", a.elcnt);
  std::fprintf(stderr, " (%s)\n", a.byref ? "ByRef" : "ByValue");
}

// Builds slot i for argument a in the given kind. False when a buffer cannot be had.
bool convert(int i, int kind, const t_DLL_ARG &a) {
  QzCv[i] = kind;
  int n = a.elcnt;
  switch (kind) {
    case CV_DIRECT:
      QzAv[i] = a.ptr;
      return true;
    case CV_STRDESC: {
      auto *d = static_cast<QzStr *>(dll_alloc(sizeof(QzStr) * static_cast<std::size_t>(n)));
      if (!d) return false;
      for (int k = 0; k < n; ++k) {
        unsigned char *e = element(a, k);
        d[k] = QzStr{a.maxlen, get32(e, 0), reinterpret_cast<char *>(e + 4)};
      }
      QzAv[i] = d;
      return true;
    }
    case CV_ZSTRING: {
      int len = get32(a.ptr, 0);
      auto *z = static_cast<char *>(dll_alloc(static_cast<std::size_t>(len) + 1));
      if (!z) return false;
      std::memcpy(z, a.ptr + 4, static_cast<std::size_t>(len));
      z[len] = '\0';
      QzAv[i] = z;
      return true;
    }
    case CV_INT2DBL:
    case CV_DEC2DBL: {
      auto *d = static_cast<double *>(dll_alloc(sizeof(double) * static_cast<std::size_t>(n)));
      if (!d) return false;
      for (int k = 0; k < n; ++k) {
        if (kind == CV_INT2DBL)
          d[k] = get32(element(a, k), 0);
        else
          m_to_dbl(decimal_at(a, k), &d[k]);
      }
      QzAv[i] = d;
      return true;
    }
    case CV_DEC2INT: {
      auto *v = static_cast<std::int32_t *>(
          dll_alloc(sizeof(std::int32_t) * static_cast<std::size_t>(n)));
      if (!v) return false;
      for (int k = 0; k < n; ++k)
        m_to_int(decimal_at(a, k), &v[k]);
      QzAv[i] = v;
      return true;
    }
  }
  return false;
}

void release(int i) {
  if (QzAv[i] && QzCv[i] != CV_DIRECT) std::free(QzAv[i]);
  QzAv[i] = nullptr;
}

}  // namespace

namespace {

// The row of the function named by descriptor 0 of a call of n descriptors, or a status:
// 9 (no name), 606 (too many arguments), 8 (the name is no string), 7 (no such function).
int find_function(int n, const QzFuncDesc **found) {
  if (n < 1) {
    if (dll_debug > 2) std::fputs("illegal argument count, function name is required\n", stderr);
    return qz::kArgCount;
  }
  if (n > kMaxArgs + 1) {
    if (dll_debug > 2) std::fprintf(stderr, "argument count exceeds maximum (%d)\n", kMaxArgs);
    return qz::kTooManyArgs;
  }
  t_DLL_ARG name = u_get_arg(0);
  if (name.type != DLL_STRING) {
    if (dll_debug > 2) std::fputs("first argument must be function name\n", stderr);
    return qz::kBadArgument;
  }
  std::size_t len = static_cast<std::size_t>(get32(name.ptr, 0));
  const char *text = reinterpret_cast<const char *>(name.ptr + 4);
  const QzFuncDesc *f = QzFuncList;
  while (f->name && !(std::strlen(f->name) == len && std::memcmp(f->name, text, len) == 0))
    ++f;
  if (!f->name) {
    if (dll_debug > 2)
      std::fprintf(stderr, "undefined function name: \"%.*s\"\n", static_cast<int>(len), text);
    return qz::kNoSuchFunction;
  }
  *found = f;
  return qz::kOk;
}

// Checks every argument of the call against its prototype and prepares its slot of QzAv.
// 0, or the status that ends the call early: 9, 17, 8, 2, -1.
int prepare_arguments(const QzFuncDesc *f) {
  int argi = 0;
  for (int i = 0; i < QzFunc_arg_cnt; ++i) {
    if (argi >= f->arg_cnt) {
      if (dll_debug > 2) std::fputs("extra argument detected\n", stderr);
      return qz::kArgCount;
    }
    t_DLL_ARG a = u_get_arg(i + 1);
    const QzArgDesc &proto = QzArgList[f->first_arg + argi];
    if (dll_debug > 2) trace_check(proto, a);
    if (proto.type < 0 || proto.type > StringArray) return qz::kInternal;
    if (proto.type == VarArg) --argi;
    if (is_array(proto.type) && proto.min_elcnt > a.elcnt) return qz::kArrayTooShort;
    int kind = a.type >= DLL_INTEGER && a.type <= DLL_STRING ? kAccept[proto.type][a.type - 1] : -1;
    if (kind < 0) return qz::kBadArgument;
    if (!convert(i, kind, a)) return qz::kNoMemory;
    ++argi;
  }
  if (argi != f->arg_cnt && QzArgList[f->first_arg + argi].type != VarArg) {
    if (dll_debug > 1) {
      std::fprintf(stderr, "%s: wrong number of arguments\n", f->name);
      std::fprintf(stderr, "QzFunc->arg_cnt = %d, argi = %d, proto->type = %d\n", f->arg_cnt, argi,
                   QzArgList[f->first_arg + argi].type);
    }
    return qz::kArgCount;
  }
  return qz::kOk;
}

// The trace line before the call, and at level 2 the values going in.
void trace_call(const QzFuncDesc *f) {
  std::fprintf(stderr, "\ncalling %s, argc = %d\n", f->name, QzFunc_arg_cnt);
  if (dll_debug < 2) return;
  int argi = 0;
  for (int i = 0; i < QzFunc_arg_cnt; ++i, ++argi) {
    ResolvedArg r = resolve_arg(f, i, argi);
    trace_value(*r.proto, r.type, i, r.a.elcnt);
  }
}

// Writes the by-reference results of argument i back into the call block in the
// interpreter's forms, or tells the interpreter there is nothing to take back. 0, or -1
// for a conversion kind that cannot be written back.
int write_back(const ResolvedArg &r, int i) {
  const t_DLL_ARG &a = r.a;
  if (!a.byref) return qz::kOk;
  if (r.type == IntByValue || r.type == RealByValue || r.type == zString) {
    u_unref_arg(i + 1);
    return qz::kOk;
  }
  if (dll_debug > 1) trace_value(*r.proto, r.type, i, a.elcnt);
  switch (QzCv[i]) {
    case CV_STRDESC:
      for (int k = 0; k < a.elcnt; ++k) {
        const QzStr &s = static_cast<const QzStr *>(QzAv[i])[k];
        // A function never leaves a length outside the capacity it was given.
        QZ_ASSERT(s.len >= 0 && s.len <= a.maxlen);
        put32(element(a, k), 0, s.len);
      }
      return qz::kOk;
    case CV_DEC2DBL:
      for (int k = 0; k < a.elcnt; ++k)
        m_cv_dbl(static_cast<const double *>(QzAv[i])[k],
                 reinterpret_cast<t_DECIMAL *>(element(a, k)));
      return qz::kOk;
    case CV_DIRECT:
      return qz::kOk;
    default:
      return qz::kInternal;
  }
}

}  // namespace

int dll_main() {
  if (dll_debug > 3) {
    trace_block();
    std::fflush(stderr);
  }
  int n = u_get_argc();
  const QzFuncDesc *f = nullptr;
  if (int st = find_function(n, &f)) return st;
  QzFunc = f;
  QzFunc_arg_cnt = n - 1;
  if (dll_debug > 2) std::fprintf(stderr, "\nfunction name = \"%s\", argc = %d\n", f->name, n - 1);
  for (int i = 0; i < kMaxArgs; ++i)
    release(i);  // left by a call that ended early
  if (int st = prepare_arguments(f)) return st;
  if (dll_debug) trace_call(f);
  int status = QzCall(static_cast<int>(f - QzFuncList), QzAv);
  if (dll_debug) std::fprintf(stderr, "return code is %d\n", status);
  int argi = 0;
  for (int i = 0; i < QzFunc_arg_cnt; ++i, ++argi) {
    if (int st = write_back(resolve_arg(f, i, argi), i)) return st;
    release(i);
  }
  return status;
}

QzFuncInfoRec *QzFuncInfo() {
  static QzFuncInfoRec info;
  info.name = QzFunc ? QzFunc->name : nullptr;
  info.arg_cnt = QzFunc_arg_cnt;
  return &info;
}

QzArgInfoRec *QzArgInfo(const void *p) {
  static QzArgInfoRec info;
  if (QzFunc_arg_cnt <= 0 || !QzFunc || QzFunc->arg_cnt <= 0) return nullptr;
  int i = 0;
  while (i < QzFunc_arg_cnt && QzAv[i] != p && reinterpret_cast<std::intptr_t>(p) != i)
    ++i;
  if (i == QzFunc_arg_cnt) return nullptr;
  t_DLL_ARG a = u_get_arg(i + 1);
  if (a.type == 0) return nullptr;
  int j = i < QzFunc->arg_cnt - 1 ? i : QzFunc->arg_cnt - 1;
  const QzArgDesc &proto = QzArgList[QzFunc->first_arg + j];
  int type = proto.type;
  if (type == VarArg) {
    type = resolve_vararg(a);
  } else if (a.elcnt >= 2) {
    if (type == IntByReference) type = IntArray;
    if (type == RealByReference) type = RealArray;
    if (type == String) type = StringArray;
  }
  info = QzArgInfoRec{type, proto.name, a.elcnt};
  return &info;
}
