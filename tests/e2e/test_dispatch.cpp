// The dispatcher through qzhost-test in both layouts: conversions between the
// interpreter's types and the prototypes, VarArg, argument counts, write-back, the
// dispatcher's statuses, its trace at every level, introspection and callbacks.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstring>
#include <regex>
#include <thread>

#include "e2e_env.hpp"

namespace {

using namespace std::chrono_literals;
using qz::client::Arg;
using qz::client::CallResult;
using qz::client::Layout;
using qz::client::Session;

class Dispatch : public ::testing::TestWithParam<Layout> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(s.start(qz::test::server_options("QZ_SERVER_HOST_TEST", GetParam()))) << s.error();
  }
  void TearDown() override {
    qz::client::ExitInfo e = s.stop();
    // Under the sanitizer build a leaked conversion buffer would show here.
    EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << s.stderr_text();
  }
  // What the server wrote to standard error during `f`.
  template <typename F>
  std::string trace(F f) {
    std::size_t before = s.stderr_text().size();
    f();
    return s.stderr_text().substr(before);
  }
  void debug(int level) { ASSERT_EQ(s.call("DllDebug", {Arg::integer(level)}).status, 0); }
  static Arg out() { return Arg::string_var("", 200); }
  Session s;
};

TEST_P(Dispatch, RealsAndIntegersCrossToTheOtherKind) {
  for (auto [in, want] :
       {std::pair{3.9, "3"}, {-3.9, "-3"}, {1e12, "2147483647"}, {-1e12, "-2147483648"}})
    EXPECT_EQ(s.call("IntValue", {Arg::real(in), out()}).args[1].as_string(), want) << in;
  EXPECT_EQ(s.call("RealValue", {Arg::integer(-7), out()}).args[1].as_string(), "-7");
  EXPECT_EQ(s.call("RealValue", {Arg::real(0.1), out()}).args[1].as_string(),
            "0.10000000000000001");
}

// Integers are written back in place; a variable given to a by-value prototype has byref
// cleared by the server and nothing comes back; a function's status passes unchanged.
TEST_P(Dispatch, ByReferenceAndByValue) {
  CallResult r = s.call("SetInt", {Arg::int_var(9), Arg::integer(-123)});
  EXPECT_EQ(r.args[0].as_int(), -123);
  EXPECT_FALSE(r.args[0].unref);
  EXPECT_TRUE(s.call("IntValue", {Arg::int_var(5), out()}).args[0].unref);
  r = s.call("RealValue", {Arg::real_var(1.5), out()});
  EXPECT_TRUE(r.args[0].unref);
  EXPECT_EQ(r.args[1].as_string(), "1.5");
  EXPECT_EQ(s.call("ReturnStatus", {Arg::integer(1118)}).status, 1118);
}

TEST_P(Dispatch, StringToIntegerPrototypeIsRefusedAfterItsCheckLine) {
  debug(3);
  std::string t = trace([&] {
    CallResult r = s.call("IntValue", {Arg::string("12"), Arg::string_var("keep", 10)});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.args[1].as_string(), "keep");  // the function was not called
  });
  EXPECT_EQ(t,
            "\nfunction name = \"IntValue\", argc = 2\n"
            " arg = Value, IntByValue, CALL = STRING, elcnt = 1 (ByValue)\n");
  EXPECT_EQ(s.call("RealRef", {Arg::integer(1), Arg::real(1), out()}).status, 8);
  EXPECT_EQ(s.call("SetString", {Arg::real_var(1), Arg::string("x")}).status, 8);
}

TEST_P(Dispatch, ArgumentCounts) {
  EXPECT_EQ(s.call("SetInt", {Arg::int_var(0), Arg::integer(1), Arg::integer(2)}).status, 9);
  debug(2);
  std::string t = trace([&] { EXPECT_EQ(s.call("SetInt", {Arg::int_var(0)}).status, 9); });
  EXPECT_EQ(t,
            "SetInt: wrong number of arguments\nQzFunc->arg_cnt = 2, argi = 1, proto->type = 1\n");
  debug(3);
  t = trace([&] {
    EXPECT_EQ(s.call("Nothing", {Arg::integer(1)}).status, 9);
    EXPECT_EQ(s.call("setint", {}).status, 7);
    EXPECT_EQ(s.call("SetInt ", {}).status, 7);
  });
  EXPECT_EQ(t,
            "\nfunction name = \"Nothing\", argc = 1\nextra argument detected\n"
            "undefined function name: \"setint\"\nundefined function name: \"SetInt \"\n");
  s.put32(s.layout().argc, 0);
  t = trace([&] { EXPECT_EQ(s.raw_call().status, 9); });
  EXPECT_EQ(t, "illegal argument count, function name is required\n");
  Arg i = Arg::integer(1);
  ASSERT_TRUE(s.write_call("Nothing", std::span<const Arg>(&i, 1)));
  s.put32(s.layout().args + s.layout().a_type, 1);  // the name given as an integer
  t = trace([&] { EXPECT_EQ(s.raw_call().status, 8); });
  EXPECT_EQ(t, "first argument must be function name\n");
}

TEST_P(Dispatch, FiftyArgumentsButNotFiftyOne) {
  std::vector<Arg> args{Arg::string_var("", 4000)};
  for (int k = 0; k < 49; ++k)
    args.push_back(Arg::integer(k));
  CallResult r = s.call("Describe", std::span<Arg>(args));  // 51 descriptors
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(args[0].as_string().rfind("IntByReference[1]=0;IntByReference[1]=1;", 0), 0u);
  EXPECT_NE(args[0].as_string().find(";IntByReference[1]=48"), std::string::npos);
  args.push_back(Arg::integer(49));  // 52 descriptors
  debug(3);
  std::string t = trace([&] { EXPECT_EQ(s.call("Describe", std::span<Arg>(args)).status, 606); });
  EXPECT_EQ(t, "argument count exceeds maximum (50)\n");
}

TEST_P(Dispatch, VarArgTakesAnyNumberAndKind) {
  CallResult r = s.call("Describe", {out()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.args[0].as_string(), "");
  r = s.call("Describe", {out(), Arg::int_var(41), Arg::real_var(1.25), Arg::string_var("ab", 5),
                          Arg::integer(7), Arg::int_array({1, 2}), Arg::real_array({0.5, -0.5}),
                          Arg::string_array({"x", "yz"}, 4)});
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.args[0].as_string(),
            "IntByReference[1]=41;RealByReference[1]=1.25;String[1]=\"ab\";IntByReference[1]=7;"
            "IntArray[2]=1,2;RealArray[2]=0.5,-0.5;StringArray[2]=\"x\",\"yz\"");
  EXPECT_EQ(r.args[1].as_int(), 42);
  EXPECT_EQ(r.args[2].as_double(), 2.5);  // a real changed through VarArg
  EXPECT_EQ(r.args[3].as_string(), "ABC");
  EXPECT_EQ(r.args[5].ints, (std::vector<std::int32_t>{2, 3}));
  EXPECT_EQ(r.args[6].as_double(0), 2.5);
  EXPECT_EQ(r.args[6].as_double(1), 2.5);
  EXPECT_EQ(r.args[7].strings, (std::vector<std::string>{"ABC", "ABC"}));
}

TEST_P(Dispatch, StringVariableThroughStringAndThroughZString) {
  CallResult r = s.call("SetString", {Arg::string_var("hello world", 20), Arg::string("ABC")});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.args[0].as_string(), "ABC");
  std::size_t data = 0;
  {  // the length word is 3 and the first three characters changed, the rest stays
    const auto &l = s.layout();
    std::uint64_t ptr = 0;
    std::memcpy(&ptr, s.block() + l.args + l.arg_size + l.a_ptr, l.addr_size);
    data = static_cast<std::size_t>(ptr - s.address_of(0));
    EXPECT_EQ(s.get32(data), 3);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(s.block()) + data + 4, 11), "ABClo world");
  }
  r = s.call("ZStr", {Arg::string_var("hello", 20), out()});
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(r.args[0].unref);
  EXPECT_EQ(r.args[1].as_string(), "hello");
  EXPECT_EQ(s.call("SetString", {Arg::string_var("ab", 2), Arg::string("ABC")}).status, 18);
}

TEST_P(Dispatch, ArraysOfEveryKindWithTheirElementSizes) {
  for (int elsz : {0, 3}) {  // natural, and wider than needed
    Arg ints = Arg::int_array({4, 5, 6});
    ints.elsz = elsz ? elsz : 0;
    Arg reals = Arg::real_array({1.5, -2.25});
    reals.elsz = elsz ? elsz + 2 : 0;
    Arg strs = Arg::string_array({"a", "bc", ""}, 3);
    strs.elsz = elsz ? elsz + 2 : 0;
    CallResult r = s.call("RealArr", {reals, out()});
    EXPECT_EQ(r.args[1].as_string(), "1.5,-2.25");
    EXPECT_EQ(r.args[0].as_double(0), -1.5);
    EXPECT_EQ(r.args[0].as_double(1), 2.25);
    r = s.call("StrArr", {strs, out()});
    EXPECT_EQ(r.args[1].as_string(), "a,bc,");
    EXPECT_EQ(r.args[0].strings, (std::vector<std::string>{"S0", "S1", "S2"}));
    if (elsz == 0) {  // integers are handed over in place, as a plain array
      r = s.call("IntArr", {ints, out()});
      EXPECT_EQ(r.args[1].as_string(), "4,5,6");
      EXPECT_EQ(r.args[0].ints, (std::vector<std::int32_t>{8, 10, 12}));
    }
  }
  EXPECT_EQ(s.call("IntArr", {Arg::int_array({1}), out()}).status, 17);
  EXPECT_EQ(s.call("IntArr", {Arg::integer(1), out()}).status, 17);
  EXPECT_EQ(s.call("IntArr", {Arg::int_array({1, 2}), out()}).status, 0);
  EXPECT_EQ(s.call("StrArr", {Arg::string_array({"a", "b"}, 1), out()}).status, 18);
}

TEST_P(Dispatch, AllocationFailuresGiveStatusTwoAndLeakNothing) {
  // Each of the call's three conversion buffers in turn fails.
  for (int n = 1; n <= 3; ++n) {
    ASSERT_EQ(s.call("FailAlloc", {Arg::integer(n)}).status, 0);
    EXPECT_EQ(s.call("RealRef", {Arg::real_var(1), Arg::real(2), out()}).status, 2) << n;
  }
  ASSERT_EQ(s.call("FailAlloc", {Arg::integer(4)}).status, 0);
  EXPECT_EQ(s.call("RealRef", {Arg::real_var(1), Arg::real(2), out()}).status, 0);
  ASSERT_EQ(s.call("FailAlloc", {Arg::integer(0)}).status, 0);  // disarm the fourth
  // A buffer built before an early failure is freed by the next call.
  EXPECT_EQ(s.call("RealRef", {Arg::real_var(1), Arg::string("x"), out()}).status, 8);
  EXPECT_EQ(s.call("Nothing", {}).status, 0);
}

TEST_P(Dispatch, TraceAtEachLevel) {
  auto call = [&] { EXPECT_EQ(s.call("SetInt", {Arg::int_var(1), Arg::integer(5)}).status, 0); };
  const std::string l1 = "\ncalling SetInt, argc = 2\nreturn code is 0\n";
  const std::string l2 =
      "\ncalling SetInt, argc = 2\n Var = 1\n Value = 5\nreturn code is 0\n Var = 5\n";
  const std::string l3 =
      "\nfunction name = \"SetInt\", argc = 2\n"
      " arg = Var, IntByReference, CALL = INTEGER, elcnt = 1 (ByRef)\n"
      " arg = Value, IntByValue, CALL = INTEGER, elcnt = 1 (ByValue)\n" +
      l2;
  debug(1);
  EXPECT_EQ(trace(call), l1);
  debug(-1);  // any non-zero level traces the call
  EXPECT_EQ(trace(call), l1);
  debug(2);
  EXPECT_EQ(trace(call), l2);
  debug(3);
  EXPECT_EQ(trace(call), l3);
  debug(4);
  std::string t = trace(call);
  // The raw block: the addresses differ from run to run; everything else is exact.
  std::string masked = std::regex_replace(t, std::regex("0x[0-9a-f]+|\\(nil\\)"), "P");
  const auto &l = s.layout();
  auto data = [&](int i) {
    std::uint64_t p = 0;
    std::memcpy(&p, s.block() + l.args + l.arg_size * i + l.a_ptr, l.addr_size);
    return static_cast<long>(p - s.address_of(0));
  };
  std::string raw =
      "dll base = P\r\nargc = 3\r\n"
      "# 0\r\ntype   = DLL_STRING\r\nptr    = P\r\nofs    = 0\r\nmaxlen = 6\r\n"
      "elsz   = 3\r\nelcnt  = 1\r\n= \"SetInt\"\r\n"
      "# 1\r\ntype   = DLL_INTEGER\r\nptr    = P\r\nofs    = " +
      std::to_string(data(1) - data(0)) +
      "\r\nmaxlen = 0\r\nelsz   = 1\r\nelcnt  = 1\r\n= 1\r\n"
      "# 2\r\ntype   = DLL_INTEGER\r\nptr    = P\r\nofs    = " +
      std::to_string(data(2) - data(0)) + "\r\nmaxlen = 0\r\nelsz   = 1\r\nelcnt  = 1\r\n= 5\r\n";
  EXPECT_EQ(masked, raw + l3);
  // Values of the other kinds: strings, reals as three words, arrays element by element.
  debug(2);
  t = trace([&] {
    s.call("RealRef", {Arg::real_var(0.5), Arg::integer(3), Arg::string_var("ab", 4)});
    s.call("StrArr", {Arg::string_array({"p", "q"}, 2), out()});
  });
  EXPECT_EQ(t,
            "\ncalling RealRef, argc = 3\n Var = 0.5\n Value = 3\n Out = \"ab\"\n"
            "return code is 0\n Var = 3\n Out = \"0.5\"\n"
            "\ncalling StrArr, argc = 2\n Strings = array [2]\n  [ 0] \"p\"\n  [ 1] \"q\"\n"
            " Out = \"\"\nreturn code is 0\n Strings = array [2]\n  [ 0] \"S0\"\n  [ 1] \"S1\"\n"
            " Out = \"p,q\"\n");
  debug(4);
  t = trace([&] { s.call("RealValue", {Arg::real(1), out()}); });
  EXPECT_NE(t.find("type   = DLL_REAL\r\n"), std::string::npos);
  EXPECT_NE(t.find("= 01010001 00000001 00000000\r\n"), std::string::npos) << t;
  debug(0);
  EXPECT_EQ(trace(call), "");
}

TEST_P(Dispatch, IntrospectionDuringTheCall) {
  auto probe = [&](std::initializer_list<Arg> args) {
    return trace([&] { EXPECT_EQ(s.call("Probe", args).status, 0); });
  };
  EXPECT_EQ(probe({Arg::integer(1), Arg::integer(2), Arg::string_var("v", 10)}),
            "func Probe 3\nfirst 0: String ... 1\nslot 0: String ... 1\n"
            "pos 0: IntByValue StmtId 1\npos 1: IntByValue ColNumber 1\n"
            "pos 2: String ... 1\npos 3: null\n");
  std::string t = probe({Arg::integer(1), Arg::real(2.9),
                         Arg::string_array({"a", "b", "c", "d", "e"}, 2), Arg::integer(5)});
  EXPECT_NE(t.find("slot 0: StringArray ... 5\nslot 1: IntByReference ... 1\n"), std::string::npos)
      << t;
  EXPECT_NE(t.find("pos 1: IntByValue ColNumber 1\n"), std::string::npos) << t;
  // Without variable arguments the first variable slot is null, which reads as position 0.
  EXPECT_EQ(probe({Arg::integer(1), Arg::integer(2)}),
            "func Probe 2\nfirst 0: IntByValue StmtId 1\npos 0: IntByValue StmtId 1\n"
            "pos 1: IntByValue ColNumber 1\n"
            "pos 2: null\n");
}

TEST_P(Dispatch, CallbacksGetTheirOwnAnswers) {
  const auto &l = s.layout();
  std::vector<int> seen;
  s.on_callback([&](int code) {
    seen.push_back(code);
    // The server wrote the code at the layout's callback offset; the client cleared it.
    EXPECT_EQ(l.callback, GetParam() == Layout::bits64 ? 40u : 32u);
    return code * 10 + 1;
  });
  CallResult r =
      s.call("CallbackTwice", {Arg::integer(7), Arg::integer(8), Arg::int_var(0), Arg::int_var(0)});
  ASSERT_TRUE(r.ok()) << r.error;
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.args[2].as_int(), 71);
  EXPECT_EQ(r.args[3].as_int(), 81);
  EXPECT_EQ(seen, (std::vector<int>{7, 8}));
  // The call handler is back: the next call is dispatched normally.
  EXPECT_EQ(s.call("ReturnStatus", {Arg::integer(5)}).status, 5);
}

TEST_P(Dispatch, AnAnswerSentBeforeTheWaitIsNotLost) {
  const auto &l = s.layout();
  // The server must be past start-up: two signals sent before its handler exists merge.
  ASSERT_TRUE(s.ping()) << s.error();
  Arg args[] = {Arg::integer(300), Arg::integer(99)};
  ASSERT_TRUE(s.write_call("CallbackAfter", args));
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);  // the call; the server now sleeps 300 ms
  std::this_thread::sleep_for(100ms);
  s.put32(l.status, 4242);  // the answer, before the request was even made
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  struct timespec ts {
    10, 0
  };
  siginfo_t info;
  ASSERT_EQ(sigtimedwait(&set, &info, &ts), SIGUSR2);  // the request
  EXPECT_EQ(s.get32(l.callback), 99);
  s.put32(l.callback, 0);
  // The end of the call may follow so closely that the two signals merge: watch the
  // status, which becomes the early answer plus one when the function returns.
  auto until = std::chrono::steady_clock::now() + 10s;
  while (s.get32(l.status) != 4243 && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(s.get32(l.status), 4243);
  struct timespec brief {
    0, 200000000
  };
  sigtimedwait(&set, &info, &brief);  // take the end-of-call signal if it is separate
  EXPECT_EQ(s.call("ReturnStatus", {Arg::integer(6)}).status, 6);
}

INSTANTIATE_TEST_SUITE_P(Layouts, Dispatch, ::testing::Values(Layout::bits32, Layout::bits64),
                         [](const auto &info) { return qz::test::layout_name(info.param); });

}  // namespace
