// The decimal library through its shared library: the vectors of decimal_oracle.py, one
// table of what the oracle leaves out (text forms, packed storage, integer and double
// conversions, the numeric layer's codes and substitutes), the fatal stops, packed round
// trips, and the direct double conversions against their text routes.
#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>
#include <type_traits>

#include "../rows.hpp"
#include "qzmath.h"

extern "C" int qzmath_c_smoke(void);

namespace {

// A record is written "<sign>[<base-100 digits>]e<exponent>" or "null", as the oracle
// writes it; BIG stands for c_dec_huge's digits and TOP for the largest value's.
const std::string kBig = "[99,99,99,99,99,99,99]e63", kTop = "[99,99,99,99,99,99,99,99]e63";

std::string show(const t_DECIMAL &v) {
  if (v.dec_pos == DEC_POS_NULL) return "null";
  std::string s = v.dec_pos == DEC_POS_NEGATIVE ? "-[" : v.dec_pos == 1 ? "+[" : "?[";
  for (int i = 0; i < v.dec_ndgts && i < 8; ++i)
    s += (i ? "," : "") + std::to_string(v.dec_dgts[i]);
  s += "]e" + std::to_string(v.dec_exp);
  return s.substr(1) == kBig   ? s[0] + std::string("BIG")
         : s.substr(1) == kTop ? s[0] + std::string("TOP")
                               : s;
}

// A record from the notation above, or from a decimal text through deccvasc (a text that
// does not parse gives the null record).
t_DECIMAL rec(std::string s) {
  t_DECIMAL v;
  std::memset(&v, 0x5A, sizeof v);  // bytes past the digit count carry nothing
  if (s.size() > 1 && s.substr(1) == "BIG") s = s[0] + kBig;
  if (s.size() > 1 && s.substr(1) == "TOP") s = s[0] + kTop;
  if (s.size() < 2 || s[1] != '[') {
    deccvasc(s == "null" ? "" : s.c_str(), 99, &v);
    return v;
  }
  v.dec_pos = s[0] == '-' ? DEC_POS_NEGATIVE : s[0] == '?' ? 7 : DEC_POS_POSITIVE;
  v.dec_ndgts = 0;
  char *p = s.data() + 2;
  while (*p != ']') {
    v.dec_dgts[v.dec_ndgts++] = static_cast<uint8_t>(std::strtol(p, &p, 10));
    p += *p == ',';
  }
  v.dec_exp = static_cast<int16_t>(std::atoi(p + 2));
  return v;
}

std::string hex(const void *p, size_t n) {
  std::string s;
  char b[3];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(b, sizeof b, "%02x", static_cast<const unsigned char *>(p)[i]);
    s += b;
  }
  return s;
}

// A code and what the call left: a record, or a number (doubles to 15 figures). The value
// is bound by reference, so it is read after the call that fills it.
template <class T>
std::string coded(int rc, const T &v) {
  std::ostringstream out;
  out << rc << " ";
  if constexpr (std::is_same_v<T, t_DECIMAL>)
    out << show(v);
  else
    out << std::setprecision(15) << +v;
  return out.str();
}

std::string digits(char *(*fn)(const t_DECIMAL *, int, int *, int *), const t_DECIMAL &v, int n) {
  int decpt = 77, sign = 77;  // 77: left alone
  std::string s = fn(&v, n, &decpt, &sign);
  return s + " " + std::to_string(decpt) + " " + std::to_string(sign);
}

using Binary = int (*)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);
const std::map<std::string, Binary> kBinary = {{"add", decadd},  {"sub", decsub},  {"mul", decmul},
                                               {"div", decdiv},  {"m_add", m_add}, {"m_sub", m_sub},
                                               {"m_mpy", m_mpy}, {"m_dvd", m_dvd}};

// One operation given as "op operands...": what it returns and leaves, as text. Operands
// are records, texts ("_" a blank), doubles, integers or bytes in hex.
std::string call(const std::string &row) {
  std::istringstream in(row);
  std::string op, a, b, c;
  in >> op >> a >> b >> c;
  const int n = std::atoi(b.c_str()), m = std::atoi(a.c_str());
  const double real = std::strtod(a.c_str(), nullptr);
  t_DECIMAL x = rec(a), y = rec(b), r;
  std::memset(&r, 0x33, sizeof r);
  char buf[256];
  int32_t i32 = 7;
  short i16 = 7;
  double d = -1;
  float f = -1;
  if (kBinary.count(op)) return coded(kBinary.at(op)(&x, &y, &r), r);
  if (op == "m_cmp") return std::to_string(m_cmp(&x, &y));
  if (op == "chs") return coded(decchs(&x), x);
  if (op == "m_chs") return coded(m_chs(&x, &x), x);  // the result may be the source
  if (op == "m_sgn") return std::to_string(m_sgn(&x));
  if (op == "gcvt") return m_gcvt(&x, n, buf);
  if (op == "ecvt") return digits(dececvt, x, n);
  if (op == "fcvt") return digits(decfcvt, x, n);
  if (op == "m_ecvt") return digits(m_ecvt, x, n);
  if (op == "m_fcvt") return digits(m_fcvt, x, n);
  if (op == "todbl") return m_to_dbl(&x, &d) ? "?" : hex(&d, sizeof d);  // the oracle's
  if (op == "m_to_dbl") return coded(m_to_dbl(&x, &d), d);
  if (op == "dectodbl") return coded(dectodbl(&x, &d), d);
  if (op == "dectoreal") return coded(dectoreal(&x, &d, n), d);
  if (op == "dectoflt") return coded(dectoflt(&x, &f), f);
  if (op == "cvreal") return coded(deccvreal(real, n, &r), r);
  if (op == "cvdbl") return coded(deccvdbl(real, &r), r);
  if (op == "cvflt") return coded(deccvflt(static_cast<float>(real), &r), r);
  if (op == "m_cv_dbl") return coded(m_cv_dbl(real, &r), r);
  if (op == "m_to_int") return coded(m_to_int(&x, &i32), i32);
  if (op == "toint32") return coded(dectoint32(&x, &i32), i32);
  if (op == "toint16") return coded(dectoint16(&x, &i16), i16);
  if (op == "cvfix") return coded(deccvfix(m, &r), r);
  if (op == "cvint32") return coded(deccvint32(m, &r), r);
  if (op == "cvint16") return coded(deccvint16(static_cast<short>(m), &r), r);
  if (op == "m_cv_int") return coded(m_cv_int(m, &r), r);
  if (op == "round") return coded(decround(&x, n), x);
  if (op == "decround") {  // the oracle's, in normal form: without the zeros a carry left
    int rc = decround(&x, n);
    while (x.dec_pos != DEC_POS_NULL && x.dec_ndgts > 0 && x.dec_dgts[x.dec_ndgts - 1] == 0)
      --x.dec_ndgts;
    return coded(rc, x);
  }
  if (op == "trunc") return coded(dectrunc(&x, n), x);
  if (op == "m_round") return coded(m_round(&x, n, &r), r);
  if (op == "m_trunc") return coded(m_trunc(&x, n, &r), r);
  if (op == "mkprec") return coded(mkprec(&x, n), x);
  unsigned char bytes[16];
  std::memset(bytes, 9, sizeof bytes);
  if (op == "store" || op == "m_store") {
    int rc = op == "store" ? stdecimal(&x, bytes, n) : m_store(&x, bytes, n);
    return std::to_string(rc) + " " + hex(bytes, n > 0 ? n : 1);
  }
  for (size_t i = 0; i + 1 < a.size() && i < 32; i += 2)
    bytes[i / 2] = static_cast<unsigned char>(std::strtol(a.substr(i, 2).c_str(), nullptr, 16));
  if (op == "load") return coded(lddecimal(bytes, n, &r), r);
  if (op == "m_load") return coded(m_load(bytes, n, &r), r);
  if (op == "comp100") {
    comp100(bytes, static_cast<int>(a.size() / 2));
    return hex(bytes, a.size() / 2);
  }
  for (char &ch : a)
    ch = ch == '_' ? ' ' : ch;
  int len = b.empty() ? static_cast<int>(a.size()) : n;
  if (op == "cvasc") return coded(deccvasc(a.data(), len, &r), r);
  if (op == "m_cv_asc") return coded(m_cv_asc(a.data(), len, &r), r);
  if (op == "toasc") {  // the field operations: record, length, decimals ("<": the byte
    std::memset(buf, 0, sizeof buf);  // before the field written, ">" the one after it)
    int rc = dectoasc(&x, buf + 1, n, std::atoi(c.c_str()));
    return std::to_string(rc) + (buf[0] ? " <[" : " [") + std::string(buf + 1, n) +
           (buf[n + 1] ? "]>" : "]");
  }
  if (op == "m_to_asc") return m_to_asc(&x, buf, n, std::atoi(c.c_str()));
  return "unknown operation " + op;
}

TEST(DecimalOracle, LibraryAgreesWithEveryVector) {
  const char *path = std::getenv("QZ_MATH_VECTORS");
  ASSERT_NE(path, nullptr) << "QZ_MATH_VECTORS names the oracle's vector file";
  std::ifstream file(path);
  std::vector<std::string> rows;
  for (std::string line; std::getline(file, line);)
    rows.push_back(line);
  EXPECT_GE(rows.size(), 90000u) << path;
  expect_rows(rows, call);
}

TEST(DecimalTable, DocumentedResultsCodesAndSubstitutes) {
  expect_rows(
      {// The numeric layer: +-c_dec_huge on overflow and division by zero, zero on
       // underflow, the sign taken from the operands (a zero is never negative).
       "m_add +BIG +BIG = 23 +BIG", "m_add -BIG -BIG = 23 -BIG", "m_sub -BIG +BIG = 23 -BIG",
       "m_sub +BIG -BIG = 23 +BIG", "m_mpy 1e-68 1e-68 = 23 +[]e0", "m_mpy +BIG -BIG = 23 -BIG",
       "m_dvd -5 0 = 31 -BIG", "m_dvd 0 -[]e0 = 31 +BIG", "m_dvd 1.5 -2 = 0 -[75]e0",
       "m_cmp 99.5 -5 = 1", "chs 2.5 = 0 -[2,50]e1", "chs 0 = 0 +[]e0", "m_chs -2.5 = 0 +[2,50]e1",
       "m_sgn -2.5 = -1", "m_sgn 0.01 = 1", "m_sgn -[]e3 = 0",
       // The general text form, digit strings (digits, decpt, sign).
       "gcvt 123.456 14 = 123.456", "gcvt 0.0001 14 = 0.0001", "gcvt 1e-20 14 = 1E-20",
       "gcvt 12345678901234 14 = 12345678901234", "gcvt 123456789012345 14 = 1.2345678901235E+14",
       "gcvt -0.5 14 = -0.5", "gcvt -[]e0 14 = 0", "gcvt +BIG 14 = 9.9999999999999E+125",
       "gcvt -TOP 14 = -1E+126", "gcvt 250 2 = 2.5E+02", "ecvt -123.456 4 = 1235 3 1",
       "ecvt 99.995 3 = 100 3 0", "ecvt 0.05 3 = 500 -1 0", "fcvt -123.456 1 = 1235 3 1",
       "fcvt -123.456 5 = 12345600 3 1", "fcvt 0.004 2 =  -2 0", "m_ecvt +TOP 3 = 100 127 0",
       "m_ecvt -[]e0 3 = 000 0 0", "m_fcvt -0.125 2 = 13 0 1",
       // Doubles both ways; the others sum the first 15 (or 6, or `limit`) digits.
       "m_to_dbl +TOP = 0 1e+126", "m_to_dbl +[1,0]e2 = 0 100", "dectodbl -123.456 = 0 -123.456",
       "dectoreal +[1,23,45,67,89,1,23,45]e1 2 = 0 1.23",
       "dectoflt +[1,23,45,67,89,1,23,45]e1 = 0 1.23456788063049",
       "cvreal 0.1234567890123456 16 = 0 +[12,34,56,78,90,12,34,56]e0",
       "cvreal 6.666666666666667 16 = 0 +[6,66,66,66,66,66,66,66]e1", "cvreal 123.456 0 = 0 +[1]e2",
       "cvreal -inf 15 = -1200 -BIG", "cvreal nan 15 = -1213 null", "cvflt 0.1 = 0 +[10]e0",
       "m_cv_dbl -2.5 = 0 -[2,50]e1", "m_cv_dbl 1e300 = 23 +BIG", "m_cv_dbl -1e300 = 23 -BIG",
       "m_cv_dbl -1e-300 = 23 +[]e0", "m_cv_dbl nan = 23 +[]e0", "m_cv_dbl inf = 23 +BIG",
       // Integers: toward zero, saturated, null as the minimum (7: output left alone).
       "m_to_int 2147483647.9 = 0 2147483647", "m_to_int 2147483648 = 20 2147483647",
       "m_to_int -2147483649 = 20 -2147483648", "m_to_int -0.9 = 0 0",
       "toint32 null = 0 -2147483648", "toint16 32767.9 = 0 32767", "toint16 32768 = -1200 7",
       "toint16 -32768 = 0 -32768", "toint16 -32769 = -1200 7", "cvfix 100 = 0 +[1]e2",
       "cvfix -2147483648 = 0 -[21,47,48,36,48]e5", "cvint32 -2147483648 = 0 null",
       "cvint32 1010 = 0 +[10,10]e2", "cvint16 -32768 = 0 null", "cvint16 -1200 = 0 -[12]e2",
       "m_cv_int -2147483648 = 0 -[21,47,48,36,48]e5", "m_cv_int 42 = 0 +[42]e1",
       // Places: a carry leaves zero digits; significant digits (mkprec) and its top.
       "round 99.995 2 = 0 +[1,0]e2", "round +[1,0,4]e1 3 = 0 +[1,0]e1",
       "round +[5,99,99,60]e1 4 = 0 +[6,0]e1", "round +[99,99,60]e0 3 = 0 +[1]e1",
       "m_round 99.995 0 = 0 +[1]e2", "m_round -2.345 2 = 0 -[2,35]e1",
       "m_trunc -2.345 2 = 0 -[2,34]e1", "mkprec 123.456 4 = 0 +[1,23,50]e2",
       "mkprec 0.0012345 2 = 0 +[12]e-1", "mkprec -0.0000049 1 = 0 -[5]e-2",
       "mkprec 0.00001 0 = 0 +[]e0", "mkprec 0.1056 2 = 0 +[11]e0",
       "mkprec -TOP 4 = 23 -[99,99]e63",
       // Packed storage: byte 0 sign and exponent, negative digits complemented, a short
       // field rounded on the first digit that does not fit (TOP carries into null).
       "store 1 4 = 0 c1010000", "store -1 4 = 0 3e630000", "store null 4 = 0 00000000",
       "store +[1,23,45]e1 3 = 0 c10117", "store +[1,23,50]e1 3 = 0 c10118",
       "store -[99,99,50]e1 3 = 0 3d6300", "store +TOP 3 = 0 000100", "store 1 0 = 0 09",
       "store -[1]e63 2 = 0 0063", "load 0063 2 = 0 null", "m_store -98765.4321 6 = 0 3c5a0c22384f",
       "load 3c5a0c22384f 6 = 0 -[9,87,65,43,21]e3", "load c10117 3 = 0 +[1,23]e1",
       "load c1 0 = 0 null", "load c10101010101010101010101 12 = 0 +[1,1,1,1,1,1,1,1]e1",
       "m_load 00050505 4 = 204 +[]e0", "m_load c10101 3 = 0 +[1,1]e1", "comp100 011700 = 624d00",
       // Parsing the oracle's random texts leave out, and the numeric layer's codes.
       "cvasc 42~junk 7 = 0 +[42]e1", "cvasc 425 2 = 0 +[42]e1", "cvasc x 0 = 0 null",
       "cvasc 1e = 0 +[1]e1", "cvasc -0 = 0 -[]e0", "cvasc . = -1213 null",
       "cvasc 1e+-2 = -1213 null", "m_cv_asc ___ = 0 +[]e0", "m_cv_asc 1.2.3 = 32 +[]e0",
       "m_cv_asc -1e300 = 23 -BIG", "m_cv_asc 1e300 = 23 +BIG", "m_cv_asc 1e-300 = 23 +[]e0",
       "m_cv_asc 3.25 = 0 +[3,25]e1",
       // Fixed fields (record, length, decimals; -1 chooses): the exponent form, "*" and
       // "0" when even that does not fit.
       "toasc 1234567 5 0 = 0 [1.2e6]", "toasc 3.14159 10 2 = 0 [3.14      ]",
       "toasc -2.5 6 2 = 0 [-2.50 ]", "toasc 0.05 6 2 = 0 [0.05  ]",
       "toasc 0.0001 6 2 = 0 [0.00  ]", "toasc 0.0001 8 -1 = 0 [0.00    ]",
       "toasc 0.123 8 -1 = 0 [0.123   ]", "toasc 12.5 8 -1 = 0 [12.5    ]",
       "toasc 1200 8 -1 = 0 [1200    ]", "toasc 12.345 5 3 = 0 [12.35]",
       "toasc -1234567 6 0 = 0 [-1.2e6]", "toasc 9999999 5 0 = 0 [1e7  ]",
       "toasc 1234567 2 0 = 0 [**]", "toasc 1e20 1 0 = 0 [*]", "toasc 1e-130 2 0 = 0 [0 ]",
       "toasc -1e30 6 0 = 0 [-1e30 ]", "toasc 1e-30 4 9 = 0 [0.00]", "toasc null 4 0 = 0 [    ]",
       "toasc 0 3 0 = 0 [0  ]", "m_to_asc 3.14159 10 2 = 3.14", "m_to_asc 3.14159 10 -1 = 3.14159",
       "m_add 5 -5 = 0 +[]e0", "m_mpy -BIG -BIG = 23 +BIG", "m_dvd 5 0 = 31 +BIG",
       "m_dvd 1e-68 +BIG = 23 +[]e0", "m_dvd -BIG 1e-68 = 23 -BIG", "m_cmp -5 -5 = 0",
       "gcvt 1e20 14 = 1E+20", "gcvt -[12,34,56,78,90,12,34,56]e-60 14 = -1.2345678901235E-121",
       "cvdbl 1e200 = -1200 +[1]e63", "cvdbl -1e-200 = -1201 -[1]e-64",
       "round 1.5 -1 = -1 +[1,50]e1", "round null 2 = 0 null", "trunc 1.5 -2 = -1 +[1,50]e1",
       "trunc null 1 = 0 null", "cvasc 5. = 0 +[5]e1", "cvasc 1e999 = -1200 +[10]e63",
       "cvfix 0 = 0 +[]e0"},
      call);
  EXPECT_EQ(qzmath_c_smoke(), 0) << "qzmath.h from C";
}

// Every entry point checks its records: null stops with condition -2, a record no library
// operation makes with -3 (a sign byte of 7, a digit over 99, a leading zero digit, an
// exponent out of range, a digit count out of range). Library codes without a substitute
// stop too.
TEST(MathDeathTest, NullMalformedAndUnhandledCodesStopTheProcess) {
  auto stop = [](int cc) {
    return "fatal math error cc #" + std::to_string(cc) + "\nfile = math\\.cpp, line = [0-9]+\n";
  };
  for (std::string row :
       {"m_sgn *", "m_chs *", "gcvt * 14", "m_to_dbl *", "m_to_int *", "m_add 1 *", "m_sub * 1",
        "m_mpy * 1", "m_dvd 1 *", "m_cmp * 1", "m_cmp 1 *", "m_round * 1", "m_trunc * 1",
        "mkprec * 1", "m_store * 4", "m_to_asc * 8 2", "m_ecvt * 3", "m_fcvt * 3"}) {
    for (const char *bad : {"?[5]e1", "+[1,100]e1", "+[0,5]e1", "+[5]e64", "+[5]e-65"})
      EXPECT_DEATH(call(std::string(row).replace(row.find('*'), 1, bad)), stop(-3)) << row << bad;
    EXPECT_DEATH(call(std::string(row).replace(row.find('*'), 1, "null")), stop(-2)) << row;
  }
  t_DECIMAL one = rec("1"), many = one, negcount = one, r;
  double d;
  many.dec_ndgts = 9;
  negcount.dec_ndgts = -1;
  EXPECT_DEATH(m_to_dbl(&many, &d), stop(-3));
  EXPECT_DEATH(m_to_dbl(&negcount, &d), stop(-3));
  EXPECT_DEATH(m_to_dbl(nullptr, &d), stop(-2));
  EXPECT_DEATH(m_round(&one, -1, &r), stop(-1));
  EXPECT_DEATH(m_trunc(&one, -2, &r), stop(-1));
  t_DECIMAL_WORK w = {0, DEC_POS_POSITIVE, 10, {1}};
  EXPECT_DEATH(dec_round(&w, 0), "s->dec_ndgts >= 0 && s->dec_ndgts <= \\(8\\+1\\)");
}

// Random records in normal form, digits biased towards 99.
struct Rng {
  std::mt19937_64 gen;
  int below(int n) { return static_cast<int>(gen() % static_cast<uint64_t>(n)); }
  t_DECIMAL record(int lo, int hi) {
    t_DECIMAL v = rec("+[]e0");
    int n = 1 + below(8);
    for (int i = 0; i < n; ++i)
      v.dec_dgts[i] = static_cast<uint8_t>(below(3) == 0 ? 99 : below(100));
    v.dec_dgts[0] += v.dec_dgts[0] == 0;
    v.dec_dgts[n - 1] += v.dec_dgts[n - 1] == 0;
    v.dec_ndgts = static_cast<int8_t>(n);
    v.dec_exp = static_cast<int16_t>(lo + below(hi - lo + 1));
    v.dec_pos = static_cast<uint8_t>(below(2));
    return v;
  }
};

// A negative value of exponent 63 would have byte 0 = 0 and reads back as null.
TEST(RoundTrip, PackedFieldsRestoreAndSortLikeTheirValuesAndWideTextParsesBack) {
  Rng rng{std::mt19937_64(0x9E3779B97F4A7C15ull)};
  for (int i = 0; i < 30000; ++i) {
    t_DECIMAL v = rng.record(-64, 62), w = rng.record(-64, 62), back;
    int length = v.dec_ndgts + 1 + rng.below(4);
    unsigned char fv[16], fw[16];
    stdecimal(&v, fv, length);
    lddecimal(fv, length, &back);
    ASSERT_EQ(show(back), show(v)) << "length " << length;
    stdecimal(&v, fv, 9);
    stdecimal(&w, fw, 9);
    int order = std::memcmp(fv, fw, 9);
    ASSERT_EQ((order > 0) - (order < 0), deccmp(&v, &w)) << show(v) << " " << show(w);
    char buf[220];
    int decimals = i % 2 && v.dec_exp >= 0 ? -1 : std::max(0, 2 * (v.dec_ndgts - v.dec_exp));
    dectoasc(&v, buf, 200, decimals);
    ASSERT_EQ(deccvasc(buf, 200, &back), 0) << std::string(buf, 200);
    ASSERT_EQ(show(back), show(v)) << std::string(buf, 60) << " decimals " << decimals;
  }
}

// A random record (mostly of the exponents programs use) and a random double through both
// routes each; a description when they differ.
std::string route_difference(Rng &rng) {
  t_DECIMAL v = rng.record(rng.below(4) ? -12 : -64, rng.below(4) ? 12 : 63), x, y;
  double direct = 0, d;
  char buf[32];
  m_to_dbl(&v, &direct);
  double text = std::strtod(m_gcvt(&v, 14, buf), nullptr);
  if (std::memcmp(&direct, &text, sizeof direct) != 0) return show(v) + " " + buf;
  uint64_t u = rng.gen();
  std::memcpy(&d, &u, sizeof d);
  if (rng.below(2) || !std::isfinite(d))  // else a random mantissa, or an exact tie
    d = rng.below(2)
            ? (1 + static_cast<double>(u >> 11) / 9007199254740992.0 * 9) *
                  std::pow(10.0, rng.below(271) - 135)
            : static_cast<double>((1000000000000000ull + u % 8000000000000000ull) / 10 * 10 + 5);
  std::memset(&x, 0, sizeof x);
  std::memset(&y, 0, sizeof y);
  int rc1 = deccvdbl(d, &x), rc2 = deccvreal(d, 15, &y);
  if (rc1 == rc2 && std::memcmp(&x, &y, sizeof x) == 0) return "";
  std::snprintf(buf, sizeof buf, "%.17g", d);
  return std::string(buf) + ": " + show(x) + " vs " + show(y);
}

// QZ_ROUTES_COUNT operands per route (the long run's ten million); a program that
// switched the rounding mode gets the text routes, which follow the mode.
TEST(DecimalRoutes, DirectConversionsMatchTheTextRoutesInEveryRoundingMode) {
  const char *env = std::getenv("QZ_ROUTES_COUNT");
  long n = env ? std::atol(env) : 20000;
  Rng rng{std::mt19937_64(0xD1B54A32D192ED03ull)};
  for (int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    long differ = 0;
    std::string first;
    std::fesetround(mode);
    for (long i = 0; i < (mode == FE_TONEAREST ? n : 5000); ++i) {
      std::string d = route_difference(rng);
      if (!d.empty() && differ++ == 0) first = d;
    }
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(differ, 0) << "rounding mode " << mode << ", first: " << first;
  }
}

}  // namespace
