// Declaring a function set once. A set lists its functions with qz::fn::func<Impl>(name,
// prototypes); QZ_FUNCTION_SET derives QzFuncList, QzArgList and QzCall from that one
// list, and the compiler checks every prototype against the C++ signature of its
// implementation, so the three can never disagree.
#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "qzhost.hpp"

// The VarArg tail an implementation receives: the slot of the VarArg prototype and every
// later one up to the last of the 50 slots (50 - k slots after k fixed parameters).
// Slots past the call's arguments are null; QzFuncInfo tells how many are real.
struct QzVarArgs {
  void **slot;  // slot[0] is the first variable argument
};

namespace qz::fn {

inline constexpr int kSlots = 50;      // QzAv slots
inline constexpr int kMaxProtos = 16;  // prototypes of one function in a declaration

struct Arg {
  const char *name;   // prototype name
  int type;           // QzArgType
  int min_elcnt = 0;  // least element count for the array types
};

using Invoker = int (*)(void **av);

struct Func {
  const char *name;      // callable name
  Invoker call;          // unpacks the slots and calls the implementation
  int arg_cnt;           // number of prototypes
  Arg args[kMaxProtos];  // the prototypes
};

// Which prototype types a parameter of C++ type T can receive; how the dispatcher's slot
// becomes that parameter. Integers and reals by value are read from the slot's address.
template <typename T>
consteval bool accepts(int type) {
  if constexpr (std::is_same_v<T, int>)
    return type == IntByValue;
  else if constexpr (std::is_same_v<T, int *>)
    return type == IntByReference || type == IntArray;
  else if constexpr (std::is_same_v<T, double>)
    return type == RealByValue;
  else if constexpr (std::is_same_v<T, double *>)
    return type == RealByReference || type == RealArray;
  else if constexpr (std::is_same_v<T, char *> || std::is_same_v<T, const char *>)
    return type == zString;
  else if constexpr (std::is_same_v<T, QzStr *>)
    return type == String || type == StringArray;
  else if constexpr (std::is_same_v<T, QzVarArgs>)
    return type == VarArg;
  else
    return false;
}

template <typename T>
T take(void **av, std::size_t i) {
  if constexpr (std::is_same_v<T, int>)
    return *static_cast<const int *>(av[i]);
  else if constexpr (std::is_same_v<T, double>)
    return *static_cast<const double *>(av[i]);
  else if constexpr (std::is_same_v<T, QzVarArgs>)
    return QzVarArgs{av + i};
  else
    return static_cast<T>(av[i]);
}

template <typename... P>
struct Params {
  static constexpr std::size_t count = sizeof...(P);
};
template <typename... P>
constexpr Params<P...> params_of(int (*)(P...)) {
  return {};
}

template <auto F, typename... P>
int invoke_with(void **av, Params<P...>) {
  return [av]<std::size_t... I>(std::index_sequence<I...>) {
    return F(take<P>(av, I)...);
  }
  (std::index_sequence_for<P...>{});
}
template <auto F>
int invoke(void **av) {
  return invoke_with<F>(av, params_of(F));
}

template <typename... P>
consteval bool signature_matches(Params<P...>, const Arg *args, std::size_t n) {
  if (n != sizeof...(P)) return false;
  std::size_t i = 0;
  bool ok = true;
  ((ok = ok && accepts<P>(args[i].type) && (args[i].type != VarArg || i + 1 == n), ++i), ...);
  return ok;
}

// One row of a function set: implementation F, its callable name and its prototypes.
// A mismatch between the prototypes and F's parameters does not compile.
template <auto F, std::size_t N>
consteval Func func(const char *name, const Arg (&args)[N]) {
  static_assert(N <= kMaxProtos, "too many prototypes");
  if (!signature_matches(params_of(F), args, N))
    throw "prototypes do not match the implementation's parameters";
  Func f{name, &invoke<F>, static_cast<int>(N), {}};
  for (std::size_t i = 0; i < N; ++i)
    f.args[i] = args[i];
  return f;
}
// A row's name and prototypes without its implementation (data a tool can show).
struct Proto {
  const char *name;      // callable name
  int arg_cnt;           // number of prototypes
  Arg args[kMaxProtos];  // the prototypes
};
template <std::size_t N>
consteval Proto proto(const char *name, const Arg (&args)[N]) {
  static_assert(N <= kMaxProtos, "too many prototypes");
  Proto p{name, static_cast<int>(N), {}};
  for (std::size_t i = 0; i < N; ++i)
    p.args[i] = args[i];
  return p;
}
// The row of prototypes p with implementation F.
template <auto F>
consteval Func func(const Proto &p) {
  if (!signature_matches(params_of(F), p.args, static_cast<std::size_t>(p.arg_cnt)))
    throw "prototypes do not match the implementation's parameters";
  Func f{p.name, &invoke<F>, p.arg_cnt, {}};
  for (int i = 0; i < p.arg_cnt; ++i)
    f.args[i] = p.args[i];
  return f;
}

template <auto F>
consteval Func func(const char *name) {
  static_assert(decltype(params_of(F))::count == 0, "prototypes missing");
  return Func{name, &invoke<F>, 0, {}};
}

template <std::size_t NF, std::size_t NA>
struct Tables {
  std::array<QzFuncDesc, NF + 1> funcs;  // rows and the terminating row
  std::array<QzArgDesc, NA + 1> args;    // prototypes and the all-zero row
  std::array<Invoker, NF> calls;         // implementation of each row
};

template <std::size_t NF>
consteval std::size_t count_args(const std::array<Func, NF> &decls) {
  std::size_t n = 0;
  for (const Func &f : decls)
    n += static_cast<std::size_t>(f.arg_cnt);
  return n;
}

template <std::size_t NF, std::size_t NA>
consteval Tables<NF, NA> build(const std::array<Func, NF> &decls) {
  Tables<NF, NA> t{};
  int next = 0;
  for (std::size_t r = 0; r < NF; ++r) {
    const Func &f = decls[r];
    t.funcs[r] = QzFuncDesc{f.name, next, f.arg_cnt};
    t.calls[r] = f.call;
    for (int a = 0; a < f.arg_cnt; ++a)
      t.args[static_cast<std::size_t>(next++)] =
          QzArgDesc{f.args[a].name, f.args[a].type, f.args[a].min_elcnt};
  }
  t.funcs[NF] = QzFuncDesc{nullptr, 0, 0};
  t.args[NA] = QzArgDesc{nullptr, 0, 0};
  return t;
}

template <std::size_t NF, std::size_t NA>
int call(const Tables<NF, NA> &t, int index, void **av) {
  if (index < 0 || static_cast<std::size_t>(index) >= NF) return -1;
  return t.calls[static_cast<std::size_t>(index)](av);
}

}  // namespace qz::fn

// Defines QzFuncList, QzArgList and QzCall from `decls`, a constexpr std::array of
// qz::fn::Func in row order.
#define QZ_FUNCTION_SET(decls)                                             \
  namespace {                                                              \
  constexpr auto qz_function_tables =                                      \
      ::qz::fn::build<(decls).size(), ::qz::fn::count_args(decls)>(decls); \
  }                                                                        \
  const QzFuncDesc *const QzFuncList = qz_function_tables.funcs.data();    \
  const QzArgDesc *const QzArgList = qz_function_tables.args.data();       \
  int QzCall(int index, void **av) {                                       \
    return ::qz::fn::call(qz_function_tables, index, av);                  \
  }
