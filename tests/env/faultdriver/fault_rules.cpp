// Fault rules: the parser of their text form, call matching, connection string attributes
// and the copying of diagnostic texts into ODBC buffers. Shared by the fault driver and the
// libodbc interposer.
#include "fault_rules.hpp"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace qz::fault {

namespace {

struct NamedCode {
  const char *name;  // return code name without the SQL_ prefix
  int rc;            // its value
};

const NamedCode return_codes[] = {
    {"SUCCESS", 0},   {"SUCCESS_WITH_INFO", 1}, {"ERROR", -1},     {"INVALID_HANDLE", -2},
    {"NO_DATA", 100}, {"NO_DATA_FOUND", 100},   {"NEED_DATA", 99}, {"STILL_EXECUTING", 2},
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())))
    s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())))
    s.remove_suffix(1);
  return s;
}

bool parse_unsigned(std::string_view s, unsigned &out) {
  if (s.empty() || s.size() > 9) return false;
  unsigned v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + static_cast<unsigned>(c - '0');
  }
  out = v;
  return true;
}

bool parse_int(std::string_view s, int &out) {
  bool neg = !s.empty() && s.front() == '-';
  if (neg) s.remove_prefix(1);
  unsigned v;
  if (!parse_unsigned(s, v)) return false;
  out = neg ? -static_cast<int>(v) : static_cast<int>(v);
  return true;
}

bool parse_rc(std::string_view s, int &out) {
  if (parse_int(s, out)) return true;
  if (s.size() > 4 && iequals(s.substr(0, 4), "SQL_")) s.remove_prefix(4);
  for (const NamedCode &c : return_codes) {
    if (iequals(s, c.name)) {
      out = c.rc;
      return true;
    }
  }
  return false;
}

// Cuts `s` at the first `sep`: returns the part before it and leaves the rest in `s`
// (empty when there was no separator).
std::string_view cut(std::string_view &s, char sep) {
  size_t p = s.find(sep);
  std::string_view head = s.substr(0, p);
  s = p == std::string_view::npos ? std::string_view() : s.substr(p + 1);
  return head;
}

}  // namespace

bool iequals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

bool parse_rule(std::string_view text, const std::vector<std::string_view> &known, Rule &out,
                std::string &error) {
  Rule r;
  std::string_view rest = trim(text);
  bool has_action = rest.find(':') != std::string_view::npos;
  std::string_view head = trim(cut(rest, ':'));
  if (!has_action) {
    error = "no ':' and action in fault rule '" + std::string(text) + "'";
    return false;
  }
  if (!head.empty() && head.back() == '+') {
    r.after = true;
    head.remove_suffix(1);
  }
  std::string_view name = cut(head, '@');
  bool known_name = false;
  for (std::string_view k : known)
    known_name = known_name || k == name;
  if (!known_name) {
    error = "unknown function '" + std::string(name) + "' in fault rule";
    return false;
  }
  r.function = std::string(name);
  if (!head.empty()) {  // the call range after '@'
    r.ranged = true;
    size_t dots = head.find("..");
    if (dots == std::string_view::npos) {
      if (!parse_unsigned(head, r.first) || r.first == 0) {
        error = "bad call number in fault rule '" + std::string(text) + "'";
        return false;
      }
      r.last = r.first;
    } else {
      std::string_view hi = head.substr(dots + 2);
      if (!parse_unsigned(head.substr(0, dots), r.first) || r.first == 0 ||
          (!hi.empty() && (!parse_unsigned(hi, r.last) || r.last < r.first))) {
        error = "bad call range in fault rule '" + std::string(text) + "'";
        return false;
      }
    }
  }
  std::string_view action = trim(cut(rest, ':'));
  if (iequals(action, "unsupported")) {
    if (!rest.empty()) {
      error = "nothing may follow 'unsupported' in fault rule '" + std::string(text) + "'";
      return false;
    }
    r.unsupported = true;
    r.rc = -1;
    r.sqlstate = "IM001";
    r.message = "Driver does not support this function";
    out = r;
    return true;
  }
  if (!parse_rc(action, r.rc)) {
    error = "bad return code '" + std::string(action) + "' in fault rule";
    return false;
  }
  r.sqlstate = "HY000";
  if (!rest.empty()) {
    std::string_view state = trim(cut(rest, ':'));
    if (state.size() != 5) {
      error = "SQLSTATE '" + std::string(state) + "' is not five characters";
      return false;
    }
    r.sqlstate = std::string(state);
  }
  if (!rest.empty()) {
    std::string_view native = trim(cut(rest, ':'));
    if (!parse_int(native, r.native)) {
      error = "bad native code '" + std::string(native) + "' in fault rule";
      return false;
    }
  }
  r.message = rest.empty() ? "Injected failure of " + r.function : std::string(rest);
  out = r;
  return true;
}

bool parse_rules(std::string_view text, const std::vector<std::string_view> &known,
                 std::vector<Rule> &out, std::string &error) {
  while (!text.empty()) {
    std::string_view piece = trim(cut(text, ';'));
    if (piece.empty()) continue;
    Rule r;
    if (!parse_rule(piece, known, r, error)) return false;
    out.push_back(r);
  }
  return true;
}

Rule *match(std::vector<Rule> &rules, std::string_view function) {
  Rule *fired = nullptr;
  for (Rule &r : rules) {
    if (r.function != function) continue;
    r.calls++;
    if (!fired && r.calls >= r.first && (r.last == 0 || r.calls <= r.last)) fired = &r;
  }
  return fired;
}

std::vector<Attribute> split_attributes(std::string_view conn) {
  std::vector<Attribute> out;
  size_t i = 0;
  while (i < conn.size()) {
    size_t eq = conn.find('=', i);
    size_t semi = conn.find(';', i);
    if (eq == std::string_view::npos || (semi != std::string_view::npos && semi < eq)) {
      // A piece without '=': kept as a key without value.
      size_t end = semi == std::string_view::npos ? conn.size() : semi;
      if (end > i) out.push_back({std::string(conn.substr(i, end - i)), "", false});
      i = end + 1;
      continue;
    }
    Attribute a;
    a.key = std::string(conn.substr(i, eq - i));
    size_t j = eq + 1;
    if (j < conn.size() && conn[j] == '{') {
      // Braced value: ends at a '}' not doubled.
      size_t k = j + 1;
      while (k < conn.size()) {
        if (conn[k] == '}') {
          if (k + 1 < conn.size() && conn[k + 1] == '}') {
            k += 2;
            continue;
          }
          break;
        }
        k++;
      }
      size_t end = k < conn.size() ? k + 1 : conn.size();
      a.value = std::string(conn.substr(j, end - j));
      j = end;
      size_t next = conn.find(';', j);
      i = next == std::string_view::npos ? conn.size() : next + 1;
    } else {
      size_t end = semi == std::string_view::npos ? conn.size() : semi;
      a.value = std::string(conn.substr(j, end - j));
      i = end + 1;
    }
    out.push_back(a);
  }
  return out;
}

std::string unbrace(std::string_view value) {
  if (value.size() < 2 || value.front() != '{' || value.back() != '}') return std::string(value);
  std::string out;
  std::string_view inner = value.substr(1, value.size() - 2);
  for (size_t i = 0; i < inner.size(); i++) {
    out += inner[i];
    if (inner[i] == '}' && i + 1 < inner.size() && inner[i + 1] == '}') i++;
  }
  return out;
}

std::string join_attributes(const std::vector<Attribute> &attrs) {
  std::string out;
  for (const Attribute &a : attrs) {
    if (!out.empty()) out += ';';
    out += a.key;
    if (a.assigned) out += "=" + a.value;
  }
  return out;
}

void copy_text(const std::string &text, unsigned char *buf, short size, short *len) {
  if (len) *len = static_cast<short>(text.size());
  if (buf && size > 0) {
    size_t n = text.size() < static_cast<size_t>(size) ? text.size() : size - 1;
    std::memcpy(buf, text.data(), n);
    buf[n] = 0;
  }
}

}  // namespace qz::fault
