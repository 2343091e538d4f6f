/* qzmath.h: the interpreter's decimal real (t_DECIMAL) and its library: the record
 * library (dec*, pure, negative error codes, never stops the process) and the numeric
 * layer (m_*, substitutes plus condition codes, fatal stop on everything else). */
#ifndef QZMATH_H
#define QZMATH_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QZMATH_API __attribute__((visibility("default")))
#else
#define QZMATH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records -------------------------------------------------------------------------
 * Value: 0.d[0]d[1]...d[n-1] (base 100) x 100^dec_exp, minus when dec_pos is 0.
 * dec_ndgts 0 means zero whatever the other fields say; dec_pos 255 means null (no
 * value). Digit bytes at index dec_ndgts and above carry no meaning. The layout is a
 * wire format shared with the interpreter. */
typedef struct t_DECIMAL {
  int16_t dec_exp;     /* exponent to base 100, -64..63 */
  uint8_t dec_pos;     /* 1 positive, 0 negative, 255 null */
  int8_t dec_ndgts;    /* significant base-100 digits, 0..8 */
  uint8_t dec_dgts[8]; /* base-100 digits 0..99, most significant first */
} t_DECIMAL;

/* The working record: the same fields with a ninth (guard) digit that decides rounding. */
typedef struct t_DECIMAL_WORK {
  int16_t dec_exp;     /* exponent to base 100 */
  uint8_t dec_pos;     /* 1 positive, 0 negative, 255 null */
  int8_t dec_ndgts;    /* significant base-100 digits, 0..9 */
  uint8_t dec_dgts[9]; /* eight digits and the guard digit */
} t_DECIMAL_WORK;

#ifdef __cplusplus
#define QZMATH_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define QZMATH_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
QZMATH_STATIC_ASSERT(sizeof(t_DECIMAL) == 12, "t_DECIMAL is a 12-byte wire record");
QZMATH_STATIC_ASSERT(offsetof(t_DECIMAL, dec_exp) == 0, "dec_exp at 0");
QZMATH_STATIC_ASSERT(offsetof(t_DECIMAL, dec_pos) == 2, "dec_pos at 2");
QZMATH_STATIC_ASSERT(offsetof(t_DECIMAL, dec_ndgts) == 3, "dec_ndgts at 3");
QZMATH_STATIC_ASSERT(offsetof(t_DECIMAL, dec_dgts) == 4, "dec_dgts at 4");

#define DEC_POS_NEGATIVE 0    /* dec_pos of a negative value */
#define DEC_POS_POSITIVE 1    /* dec_pos of a positive value or zero */
#define DEC_POS_NULL 255      /* dec_pos of the null record */
#define DEC_MAX_DIGITS 8      /* base-100 digits a record holds */
#define DEC_MAX_EXP 63        /* largest dec_exp */
#define DEC_MIN_EXP (-64)     /* smallest dec_exp */
#define DEC_DIGIT_BUFSIZE 152 /* the digit buffer: 151 characters and the NUL */

/* ---- Constants ---------------------------------------------------------------------- */
QZMATH_API extern const t_DECIMAL c_dec_zero;  /* canonical zero */
QZMATH_API extern const t_DECIMAL c_dec_one;   /* 1 */
QZMATH_API extern const t_DECIMAL c_dec_huge;  /* 9.9999999999999E+125, saturated overflow */
QZMATH_API extern const t_DECIMAL c_int32_max; /* 2147483647 */
QZMATH_API extern const t_DECIMAL c_int32_min; /* -2147483648 */
QZMATH_API extern const t_DECIMAL c_min_int32; /* -2147483648, the int32 minimum as a record */

/* ---- Library error codes (negative returns of the dec* functions) -------------------- */
#define DEC_E_OVERFLOW (-1200)  /* result exponent above 63 (clamped to 63) */
#define DEC_E_UNDERFLOW (-1201) /* result exponent below -64 (clamped to -64) */
#define DEC_E_DIVZERO (-1202)   /* division by zero */
#define DEC_E_BADTEXT (-1213)   /* text is not a number */
#define DEC_E_BADEXP (-1216)    /* exponent in text above 999 */
#define DEC_E_NULLCMP (-2)      /* null operand in a comparison */
#define DEC_E_NEGPLACES (-1)    /* negative digit count to rounding or truncation */

/* ---- Condition codes (returns of the m_* functions) ---------------------------------- */
#define M_CC_OK 0           /* exact or correctly rounded */
#define M_CC_INT_RANGE 20   /* int32 conversion saturated */
#define M_CC_RANGE 23       /* out of range: +-c_dec_huge or zero; NaN or infinite double */
#define M_CC_DIVZERO 31     /* division by zero: +-c_dec_huge */
#define M_CC_BADTEXT 32     /* text not convertible: zero */
#define M_CC_NULLPACKED 204 /* packed form held null: zero */
/* Condition codes of fatal_math_error (besides the library code it could not handle): */
#define M_CC_NULL (-2) /* null operand */
/* A record handed to the numeric layer that no library operation can have made: dec_pos
 * other than 0, 1 or 255; dec_ndgts outside 0..8; or, with digits, a digit above 99, a
 * first digit 0 or dec_exp outside -64..63. Such a record would otherwise come out as a
 * silent garbage value, so the m_* entry points stop the process with this code. */
#define M_CC_MALFORMED (-3)

/* ---- Record library ------------------------------------------------------------------
 * Pointers are to records; a result may be the same record as an operand. Operands are
 * expected in the form the library itself makes; nothing is validated here. */

/* Normalises and rounds a working record to 8 digits (carry: a carry out of the first
 * digit). Returns 0, DEC_E_OVERFLOW or DEC_E_UNDERFLOW (exponent clamped). Stops the
 * process with an assertion when dec_ndgts is outside 0..9. */
QZMATH_API int dec_round(t_DECIMAL_WORK *s, int carry);
QZMATH_API int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
QZMATH_API int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
/* Drops partial products past the guard digit before rounding. */
QZMATH_API int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
/* Nine quotient places; when the first quotient digit is 0 only eight are formed and the
 * quotient is truncated. Division by zero gives the canonical zero and DEC_E_DIVZERO. */
QZMATH_API int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
/* -1, 0, 1 (a less, equal, greater); DEC_E_NULLCMP when either is null. A zero whose
 * sign byte says negative (the text "-0" makes one) is ordered by the sign byte first,
 * as any other record. */
QZMATH_API int deccmp(const t_DECIMAL *a, const t_DECIMAL *b);
QZMATH_API int decchs(t_DECIMAL *v);
/* Round half away from zero / truncate to `places` digits after the decimal point, in
 * place. decround may leave trailing zero digits where its carry clears them (the value
 * is unaffected). Returns 0, DEC_E_OVERFLOW (decround) or DEC_E_NEGPLACES. */
QZMATH_API int decround(t_DECIMAL *v, int places);
QZMATH_API int dectrunc(t_DECIMAL *v, int places);

/* Digit generation into the shared digit buffer (overwritten by the next call): ndigit
 * significant digits (fflag 0) or ndigit digits after the point (fflag 1). A null value
 * gives "" with decpt and sign unwritten. When rounding would carry the value past
 * 100^63 the library gives "" (the numeric layer then reports the rounded value, see
 * m_gcvt). */
QZMATH_API char *decefcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag);
QZMATH_API char *dececvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign);
QZMATH_API char *decfcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign);

/* double to record with ndigit significant digits (at most 16 are used; below 1 counts
 * as 1). The digits are the correctly rounded ones of the C library's exact "%.*e"
 * conversion, which are the same in every build (the C library's own ecvt scales by
 * powers of ten in floating point and gives other digits in the i386 build). Zero
 * (either sign) gives the canonical zero. An infinity gives c_dec_huge with its sign and
 * DEC_E_OVERFLOW; NaN gives the null record and DEC_E_BADTEXT. */
QZMATH_API int deccvreal(double d, int ndigit, t_DECIMAL *result);
/* deccvreal with 15 digits. It takes the figures from an extended-precision product
 * where they are provably the correctly rounded ones and from the text conversion
 * otherwise; the result is the same. */
QZMATH_API int deccvdbl(double d, t_DECIMAL *result);
QZMATH_API int deccvflt(float f, t_DECIMAL *result);
/* Integer part (truncated towards zero); DEC_E_OVERFLOW outside int32, out untouched.
 * dectoint32 gives -2147483648 for null. */
QZMATH_API int dectofix(const t_DECIMAL *v, int32_t *out);
QZMATH_API int dectoint32(const t_DECIMAL *v, int32_t *out);
/* -32768 for null; DEC_E_OVERFLOW outside int16, out untouched. */
QZMATH_API int dectoint16(const t_DECIMAL *v, short *out);
QZMATH_API int deccvfix(int32_t i, t_DECIMAL *result);
/* The integer minimum (the interpreter's null integer) gives the null record. */
QZMATH_API int deccvint32(int32_t i, t_DECIMAL *result);
QZMATH_API int deccvint16(short i, t_DECIMAL *result);
/* Sum of the first `limit` digits in extended precision, scaled by powers of 100. */
QZMATH_API int dectoreal(const t_DECIMAL *v, double *out, int limit);
QZMATH_API int dectodbl(const t_DECIMAL *v, double *out);
QZMATH_API int dectoflt(const t_DECIMAL *v, float *out);

/* Packed storage form of `length` bytes (byte 0 sign and exponent, then base-100 digits,
 * 100's complement for negative values). A field shorter than the value rounds on the
 * first digit that does not fit. A negative value with exponent 63, and a value whose
 * rounding carries byte 0 past 0xFF, read back as null (byte 0 would be 0). A length
 * below 1 reads as null and stores nothing. */
QZMATH_API void comp100(unsigned char *digits, int n);
QZMATH_API int lddecimal(const unsigned char *bytes, int length, t_DECIMAL *result);
QZMATH_API int stdecimal(const t_DECIMAL *v, unsigned char *bytes, int length);

/* Parses `length` characters of text (the text also ends at a NUL). Accepted: leading
 * blanks, an optional sign, digits with at most one point (at least one digit), an
 * optional exponent ("e" or "E", optional sign, figures; no figures means 0), then only
 * blanks to the end. Anything else after the number gives DEC_E_BADTEXT; an exponent
 * whose figures exceed 999 (either sign) gives DEC_E_BADEXP. A blank or empty text gives
 * the null record and 0. The first 18 significant figures are used. */
QZMATH_API int deccvasc(const char *text, int length, t_DECIMAL *result);
/* Fixed-width text, left-aligned and blank-filled, not terminated; exponent form ("1.2e6")
 * when the integer part does not fit, all "*" (or "0" for tiny values) when not even
 * that fits. Negative decimals choose: 0 for an integer, else twice (digits - dec_exp)
 * with dec_exp >= 0 and twice the digit count with dec_exp < 0, less one when the last
 * digit ends in 0; values below 0.01 can therefore lose figures with them. */
QZMATH_API int dectoasc(const t_DECIMAL *v, char *buffer, int length, int decimals);

/* ---- Numeric layer -------------------------------------------------------------------
 * Every record operand is checked: null stops the process with M_CC_NULL, a malformed
 * record with M_CC_MALFORMED (see above), both through fatal_math_error. */
QZMATH_API int m_zero(t_DECIMAL *result);
QZMATH_API int m_one(t_DECIMAL *result);
QZMATH_API int m_huge(t_DECIMAL *result);
QZMATH_API int m_sgn(const t_DECIMAL *v);
QZMATH_API int m_chs(const t_DECIMAL *source, t_DECIMAL *result);
/* General text form with ndigit significant digits (buf holds ndigit + 8 bytes). A value
 * whose rounding carries past 100^63 is written as its rounded value, 1E+126 with its
 * sign (so m_to_dbl gives +-1e126). */
QZMATH_API char *m_gcvt(const t_DECIMAL *v, int ndigit, char *buf);
/* The double nearest to v rounded half away from zero to 14 significant digits: what
 * strtod makes of m_gcvt's text, which is the route taken unless one correctly rounded
 * operation on the figures gives the same double (most values of ordinary size). */
QZMATH_API int m_to_dbl(const t_DECIMAL *v, double *out);
/* 0, or M_CC_RANGE for overflow (+-c_dec_huge), underflow, NaN (zero) and infinities
 * (+inf c_dec_huge, -inf zero). */
QZMATH_API int m_cv_dbl(double d, t_DECIMAL *result);
/* Truncated towards zero; M_CC_INT_RANGE with the saturated limit when out of range. */
QZMATH_API int m_to_int(const t_DECIMAL *v, int32_t *out);
QZMATH_API int m_add(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
QZMATH_API int m_sub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
QZMATH_API int m_mpy(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
QZMATH_API int m_dvd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result);
QZMATH_API int m_cmp(const t_DECIMAL *a, const t_DECIMAL *b);
QZMATH_API int m_round(const t_DECIMAL *source, int places, t_DECIMAL *result);
QZMATH_API int m_trunc(const t_DECIMAL *source, int places, t_DECIMAL *result);
/* Rounds v in place to p significant decimal digits; M_CC_RANGE with the truncated
 * c_dec_huge pattern when rounding carries past the top. */
QZMATH_API int mkprec(t_DECIMAL *v, int p);
/* M_CC_NULLPACKED with zero when the packed form held null. */
QZMATH_API int m_load(const unsigned char *bytes, int length, t_DECIMAL *result);
QZMATH_API int m_store(const t_DECIMAL *v, unsigned char *bytes, int length);
/* 0; M_CC_BADTEXT (zero) for unparseable text; M_CC_RANGE for overflow (+-c_dec_huge) or
 * underflow (zero). A blank or empty text gives zero and 0. */
QZMATH_API int m_cv_asc(const char *text, int length, t_DECIMAL *result);
/* dectoasc, then a NUL after the last non-blank (buffer holds length + 1 bytes). */
QZMATH_API char *m_to_asc(const t_DECIMAL *v, char *buffer, int length, int decimals);
/* Digit strings in the shared digit buffer; a zero gives decpt and sign 0. */
QZMATH_API char *m_ecvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign);
QZMATH_API char *m_fcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign);
/* The integer minimum gives c_min_int32 (never null). */
QZMATH_API int m_cv_int(int32_t i, t_DECIMAL *result);

/* Writes "fatal math error cc #<cc>" and "file = <file>, line = <line>" to stderr and
 * aborts. */
#if defined(__GNUC__)
#define QZMATH_NORETURN __attribute__((noreturn))
#else
#define QZMATH_NORETURN
#endif
QZMATH_API QZMATH_NORETURN void fatal_math_error(int cc, const char *file, int line);

#ifdef __cplusplus
}
#endif

#endif /* QZMATH_H */
