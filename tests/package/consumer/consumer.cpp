// Starts the server given on the command line, asks its Revision, and adds two reals with
// libqzmath: "Revision 1.8; 0.1 + 0.2 = 0.3".
#include <qzmath.h>

#include <cstdio>
#include <qzclient.hpp>

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  qz::client::block_call_signal();
  qz::client::Options o;
  o.server = argv[1];
  qz::client::Session s;
  if (!s.start(o)) return 1;
  qz::client::CallResult r = s.call("Revision", {qz::client::Arg::string_var("", 10)});
  if (!r.ok() || r.status != 0) return 1;
  t_DECIMAL a, b, sum;
  m_cv_asc("0.1", 3, &a);
  m_cv_asc("0.2", 3, &b);
  m_add(&a, &b, &sum);
  char buf[20];
  std::printf("Revision %s; 0.1 + 0.2 = %s\n", r.args[0].as_string().c_str(),
              m_to_asc(&sum, buf, 10, 1));
  return s.stop().code;
}
