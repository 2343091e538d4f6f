/* qzmath.h used from C, linked against the shared library: the header is valid C and
 * the library's C interface works without the C++ runtime. */
#include <string.h>

#include "qzmath.h"

/* Returns 0 when 1.5 * -2 gives -3, its text and its double come out right. */
int qzmath_c_smoke(void) {
  t_DECIMAL a, b, r;
  char buf[32];
  double d = 0;
  if (m_cv_asc("1.5", 3, &a) != M_CC_OK) return 1;
  if (m_cv_int(-2, &b) != M_CC_OK) return 2;
  if (m_mpy(&a, &b, &r) != M_CC_OK) return 3;
  if (strcmp(m_gcvt(&r, 14, buf), "-3") != 0) return 4;
  if (m_to_dbl(&r, &d) != 0 || d != -3.0) return 5;
  if (sizeof(t_DECIMAL) != 12) return 6;
  return 0;
}
