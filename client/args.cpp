// Arguments and decimal records as an interpreter hands them over.
#include <cstring>

#include "qzclient.hpp"
#include "qzmath.h"

namespace qz::client {

Arg Arg::integer(std::int32_t v) {
  Arg a;
  a.type = kInteger;
  a.ints = {v};
  return a;
}
Arg Arg::int_var(std::int32_t v) {
  Arg a = integer(v);
  a.byref = true;
  return a;
}
Arg Arg::int_array(std::vector<std::int32_t> v, bool byref) {
  Arg a;
  a.type = kInteger;
  a.byref = byref;
  a.ints = std::move(v);
  return a;
}
Arg Arg::real(const Decimal &d) {
  Arg a;
  a.type = kReal;
  a.reals = {d};
  return a;
}
Arg Arg::real_var(const Decimal &d) {
  Arg a = real(d);
  a.byref = true;
  return a;
}
Arg Arg::real_array(std::vector<Decimal> v, bool byref) {
  Arg a;
  a.type = kReal;
  a.byref = byref;
  a.reals = std::move(v);
  return a;
}
Decimal Decimal::from_double(double d) {
  static_assert(sizeof(t_DECIMAL) == sizeof(Decimal::bytes));
  t_DECIMAL t;
  m_cv_dbl(d, &t);
  Decimal r;
  std::memcpy(r.bytes, &t, sizeof r.bytes);
  return r;
}

double Decimal::to_double() const {
  t_DECIMAL t;
  std::memcpy(&t, bytes, sizeof t);
  double d = 0;
  m_to_dbl(&t, &d);
  return d;
}

Arg Arg::real(double d) {
  return real(Decimal::from_double(d));
}
Arg Arg::real_var(double d) {
  return real_var(Decimal::from_double(d));
}
Arg Arg::real_array(const std::vector<double> &v, bool byref) {
  std::vector<Decimal> r;
  for (double d : v)
    r.push_back(Decimal::from_double(d));
  return real_array(std::move(r), byref);
}
double Arg::as_double(std::size_t k) const {
  return reals.at(k).to_double();
}

Arg Arg::string(std::string_view s) {
  Arg a;
  a.type = kString;
  a.maxlen = static_cast<int>(s.size());
  a.strings = {std::string(s)};
  return a;
}
Arg Arg::string_var(std::string_view s, int capacity) {
  Arg a = string(s);
  a.byref = true;
  a.maxlen = capacity;
  return a;
}
Arg Arg::string_array(std::vector<std::string> v, int capacity, bool byref) {
  Arg a;
  a.type = kString;
  a.byref = byref;
  a.maxlen = capacity;
  a.strings = std::move(v);
  return a;
}

int Arg::elcnt() const {
  switch (type) {
    case kInteger:
      return static_cast<int>(ints.size());
    case kReal:
      return static_cast<int>(reals.size());
    case kString:
      return static_cast<int>(strings.size());
    default:
      return 0;
  }
}

int Arg::natural_elsz() const {
  switch (type) {
    case kReal:
      return 3;
    case kString:
      return (4 + (maxlen > 0 ? maxlen : 0) + 3) / 4;
    default:
      return 1;
  }
}

}  // namespace qz::client
