/* qzmath.h used from C, linked against the shared library: the header is valid C and
 * the library's C interface works without the C++ runtime. */
#include <string.h>

#include "qzmath.h"

/* 0 when 1.5 * -2 gives -3 and its text. */
int qzmath_c_smoke(void) {
  t_DECIMAL a, b, r;
  char buf[32];
  if (m_cv_asc("1.5", 3, &a) || m_cv_int(-2, &b) || m_mpy(&a, &b, &r)) return 1;
  return strcmp(m_gcvt(&r, 14, buf), "-3") != 0 || sizeof(t_DECIMAL) != 12;
}
