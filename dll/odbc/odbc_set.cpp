// The function table of the qzodbc server: exactly the 40 rows of the ODBC function set.
#include "odbc_functions.hpp"

QZ_FUNCTION_SET(qz::kOdbcFunctions)
