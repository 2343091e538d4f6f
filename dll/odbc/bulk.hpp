// Many rows per call: the rows FetchArray packs into the elements of a string array, the
// rows ExecuteArray executes from parameter arrays, and the binding of one value (a single
// one or one element of an array) that Execute, SetParam and ExecuteArray share.
#pragma once

#include "qzhost.hpp"

struct stmt;

namespace qz {

// Binds element k of the argument in slot (a resolved prototype type `kind`: an integer,
// real or string, single or array) as parameter par, with the setter the kind calls for,
// so that every value crosses with Execute's conversions. 8 for any other kind, else the
// setter's status.
int set_param_element(stmt *s, int par, int kind, void *slot, int k);

// Fetches up to n rows and packs row k into bufs[k] as Fetch packs a row; *rows becomes the
// number of elements filled (0 at the end of the result). A row that does not fit its
// element gives 18 and stays waiting for the next fetch, while IsNull and GetData keep
// reading the last row delivered. The diagnostics the fetches left (truncations) stay
// queued, oldest first. 0, 2, 18, or the status of the fetch method.
int fetch_rows(stmt *s, QzStr *bufs, int n, int *rows);

// Executes the prepared statement once for each row 0 to rows - 1, binding element r of
// slots[j] (of resolved kind kinds[j]) as parameter j + 1; *done becomes the number of rows
// executed successfully, and the statement's row count the rows they affected in total.
// The first failing row ends the loop: its status is returned, with the failure's
// diagnostics queued and then one record of the server's own naming the row.
int execute_rows(stmt *s, int rows, void *const *slots, const int *kinds, int *done);

}  // namespace qz
