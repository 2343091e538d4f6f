// dll_main: carries out one call described by the call block. This first form finds the
// function by name and hands integer arguments over in place; conversions, checks of
// every prototype type, write-back and the trace come with the full dispatcher.
#include <cstring>

#include "dllmain.hpp"

void *QzAv[50];                      // value handed to the function for each argument
int QzCv[50];                        // conversion kind of each slot (0: in place)
const QzFuncDesc *QzFunc = nullptr;  // function being called
int QzFunc_arg_cnt = 0;              // arguments of the call, the name not counted

int dll_main() {
  int n = u_get_argc();
  if (n < 1) return 9;
  if (n > 51) return 606;
  t_DLL_ARG name = u_get_arg(0);
  if (name.type != DLL_STRING) return 8;
  int len = qz::wire::get32(name.ptr, 0);
  const char *text = reinterpret_cast<const char *>(name.ptr + 4);
  for (QzFunc = QzFuncList; QzFunc->name; ++QzFunc)
    if (std::strlen(QzFunc->name) == static_cast<std::size_t>(len) &&
        std::memcmp(QzFunc->name, text, static_cast<std::size_t>(len)) == 0)
      break;
  if (!QzFunc->name) return 7;
  QzFunc_arg_cnt = n - 1;
  if (n - 1 != QzFunc->arg_cnt) return 9;
  for (int i = 0; i < n - 1; ++i) {
    t_DLL_ARG a = u_get_arg(i + 1);
    int type = QzArgList[QzFunc->first_arg + i].type;
    if (a.type != DLL_INTEGER || (type != IntByValue && type != IntByReference)) return 8;
    QzAv[i] = a.ptr;
    QzCv[i] = 0;
  }
  return QzCall(static_cast<int>(QzFunc - QzFuncList), QzAv);
}
