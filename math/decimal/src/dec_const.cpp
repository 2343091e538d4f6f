// The library's constant records: zero, one, the saturated overflow value and the int32
// limits. Their bytes are part of the interpreter's wire format.
#include "qzmath.h"

extern "C" {
const t_DECIMAL c_dec_zero = {0, DEC_POS_POSITIVE, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
const t_DECIMAL c_dec_one = {1, DEC_POS_POSITIVE, 1, {1, 0, 0, 0, 0, 0, 0, 0}};
// Fourteen nines at the top exponent: the largest number with 14 significant figures.
const t_DECIMAL c_dec_huge = {63, DEC_POS_POSITIVE, 7, {99, 99, 99, 99, 99, 99, 99, 0}};
const t_DECIMAL c_int32_max = {5, DEC_POS_POSITIVE, 5, {21, 47, 48, 36, 47, 0, 0, 0}};
const t_DECIMAL c_int32_min = {5, DEC_POS_NEGATIVE, 5, {21, 47, 48, 36, 48, 0, 0, 0}};
const t_DECIMAL c_min_int32 = {5, DEC_POS_NEGATIVE, 5, {21, 47, 48, 36, 48, 0, 0, 0}};
}
