#!/usr/bin/env python3
# Writes test vectors for the decimal library: random operands and the results the
# library must give, computed here with exact integer arithmetic and Python's decimal
# module from the documented rules (rounding half away from zero on the guard digit, the
# truncations of multiplication and division, the text and double conversions). Nothing
# here is taken from the C++ code.
#
# usage: decimal_oracle.py OUTPUT [COUNT_PER_OPERATION] [SEED]
#
# Vector file: a sequence of records, each a tag byte and a fixed payload (little endian):
# 1 add, 2 sub, 3 mul, 4 div: a(12) b(12) expected(12) code(i32)
# 5 round, 6 trunc:          v(12) places(i32) expected(12) code(i32)
# 7 cvasc:                   length(i32) text(length) expected(12) code(i32)
# 8 cvdbl:                   double(8) expected(12) code(i32)
# 9 todbl:                   v(12) double(8)

import decimal
import fractions
import os
import random
import struct
import sys

OVERFLOW, UNDERFLOW, DIVZERO, BADTEXT, BADEXP, NEGPLACES = -1200, -1201, -1202, -1213, -1216, -1
MAX_EXP, MIN_EXP = 63, -64
NULL_POS = 255


class Rec:
    # A decimal record: exponent, sign byte, base-100 digits (and junk bytes after).

    __slots__ = ("exp", "pos", "digits", "junk")

    def __init__(self, exp, pos, digits, junk=None):
        self.exp, self.pos, self.digits = exp, pos, list(digits)
        self.junk = junk

    def pack(self):
        d = self.digits + (self.junk or [0] * 8)
        return struct.pack("<hBb8B", self.exp, self.pos, len(self.digits), *d[:8])

    @property
    def null(self):
        return self.pos == NULL_POS

    @property
    def zero(self):
        return not self.digits

    @property
    def neg(self):
        return self.pos == 0


NULL = Rec(0, NULL_POS, [])
ZERO = Rec(0, 1, [])


def base100(n):
    out = []
    while n:
        n, r = divmod(n, 100)
        out.append(r)
    return out[::-1]


def magnitude(r):
    # (N, s) with |value| = N * 100**s.
    n = 0
    for d in r.digits:
        n = n * 100 + d
    return n, r.exp - len(r.digits)


def value(r):
    n, s = magnitude(r)
    v = fractions.Fraction(n) * fractions.Fraction(100) ** s
    return -v if r.neg else v


def record(neg, n, s):
    # The normalised record of (-1 if neg) * n * 100**s rounded half away from zero to
    # eight base-100 digits, and the range code (exponent clamped, digits kept).
    if n == 0:
        return Rec(0, 1, []), 0
    digits = base100(n)
    if len(digits) > 8:
        drop = len(digits) - 8
        q, r = divmod(n, 100 ** drop)
        if 2 * r >= 100 ** drop:  # guard digit 50 or more
            q += 1
        digits = base100(q)
        s += drop
    e = s + len(digits)
    while digits[-1] == 0:
        digits.pop()
    code = 0
    if e > MAX_EXP:
        e, code = MAX_EXP, OVERFLOW
    elif e < MIN_EXP:
        e, code = MIN_EXP, UNDERFLOW
    return Rec(e, 0 if neg else 1, digits), code


# ---- operations, from the documented rules -------------------------------------------------


def op_add(a, b):
    if a.null or b.null:
        return NULL, 0
    if a.zero:
        return b, 0
    if b.zero:
        return a, 0
    # The larger magnitude leads; the smaller keeps only its places down to the guard
    # place (the ninth) of the larger one: what lies below is dropped, not rounded.
    na, sa = magnitude(a)
    nb, sb = magnitude(b)
    low = min(sa, sb)
    if na * 100 ** (sa - low) >= nb * 100 ** (sb - low):
        big, small = a, b
    else:
        big, small = b, a
    k = big.exp - small.exp
    if k > 8:
        return big, 0
    unit = big.exp - 9  # exponent of the guard place's unit
    nbig, sbig = magnitude(big)
    nsmall, ssmall = magnitude(small)
    big_units = nbig * 100 ** (sbig - unit)
    if ssmall >= unit:
        small_units = nsmall * 100 ** (ssmall - unit)
    else:
        small_units = nsmall // 100 ** (unit - ssmall)
    total = big_units + small_units if a.pos == b.pos else big_units - small_units
    return record(big.neg, total, unit)


def op_sub(a, b):
    if a.null or b.null:
        return NULL, 0
    if b.zero:
        return a, 0
    return op_add(a, Rec(b.exp, 1 if b.neg else 0, b.digits))


def op_mul(a, b):
    if a.null or b.null:
        return NULL, 0
    if a.zero or b.zero:
        return ZERO, 0
    # Partial products a_i * b_j at place i + j; those past place 8 are dropped.
    total = 0
    for i, x in enumerate(a.digits):
        for j, y in enumerate(b.digits):
            if i + j <= 8:
                total += x * y * 100 ** (8 - i - j)
    return record(a.neg != b.neg, total, a.exp + b.exp - 10)


def op_div(a, b):
    # Long division as documented: quotient digit by digit from a two-digit trial
    # divisor, the running remainder kept in nine places, the divisor cut at place 9 with
    # only the hundreds of the first product past it, and the exponent lowered once when
    # the first quotient digit is 0.
    if a.null or b.null:
        return NULL, 0
    if b.zero:
        return ZERO, DIVZERO
    bd = b.digits
    wexp = a.exp - b.exp + 1
    rem = (a.digits + [0] * 9)[:9]
    trial = 100 * bd[0] + (bd[1] if len(bd) > 1 else 0)
    quotient = [0] * 9
    q = 0
    place = 0
    for s in range(9):
        p = s - 1 if s > 0 and rem[s - 1] != 0 else s
        if s == 1 and q == 0:
            wexp -= 1
        elif s > 0:
            place += 1
        t = 100 * rem[p] + (rem[p + 1] if p < 8 else 0) + 1
        if p != s:
            t *= 100
        q = t // trial
        if q == 0:
            quotient[place] = 0
            continue
        q = min(q, 99)
        nb = len(bd)
        borrow = 0
        if nb > 9 - p:
            nb = 9 - p
            borrow = -((q * bd[9 - p]) // 100)
        for x in range(s + nb - 1, p - 1, -1):
            if x <= 8:
                borrow += rem[x]
            if x - s >= 0:
                borrow -= q * bd[x - s]
            digit, borrow = borrow % 100, borrow // 100
            if x <= 8:
                rem[x] = digit
        top = borrow
        while top < 0:
            if q == 0:
                sys.exit("division model: quotient digit below 0")
            q -= 1
            carry = 0
            for x in range(s + nb - 1, p - 1, -1):
                v = carry + (rem[x] if x <= 8 else 0) + (bd[x - s] if x - s >= 0 else 0)
                digit, carry = v % 100, v // 100
                if x <= 8:
                    rem[x] = digit
            top += carry
        quotient[place] = q
    n = 0
    for d in quotient:
        n = n * 100 + d
    return record(a.neg != b.neg, n, wexp - 9)


def div_summary(a, b):
    # The documented outcome in exact terms: nine quotient places rounded on the ninth,
    # or eight truncated when the first place is 0.
    na, sa = magnitude(a)
    nb, sb = magnitude(b)
    wexp = a.exp - b.exp + 1
    # floor(|a/b| / 100**(wexp - 9)): the quotient in units of the ninth place
    num, den = na, nb
    shift = sa - sb - (wexp - 9)
    if shift >= 0:
        num *= 100 ** shift
    else:
        den *= 100 ** (-shift)
    units = num // den
    # With the first place 0, units has at most eight digits and record() keeps them all
    # (truncation); otherwise it has nine and record() rounds on the ninth.
    return record(a.neg != b.neg, units, wexp - 9)


def exact_places(neg, n, s, places, mode):
    # Round half away (mode 'round') or truncate value n * 100**s to `places` decimal
    # places; returns the record of the result.
    # value * 10**places = n * 100**s * 10**places
    num, den = n, 1
    e10 = 2 * s + places
    if e10 >= 0:
        num *= 10 ** e10
    else:
        den = 10 ** (-e10)
    q, r = divmod(num, den)
    if mode == "round" and 2 * r >= den:
        q += 1
    # q * 10**-places as base 100: scale to an even power
    if places % 2:
        return record(neg, q * 10, -(places + 1) // 2)
    return record(neg, q, -places // 2)


def to_places(mode):
    # decround (mode 'round') or dectrunc (mode 'trunc'): a value with no digit past the
    # place is returned as it is.
    def op(v, places):
        if places < 0:
            return v, NEGPLACES
        if v.null or v.exp + places // 2 >= len(v.digits):
            return v, 0
        n, s = magnitude(v)
        return exact_places(v.neg, n, s, places, mode)
    return op


def text_value(neg, figures, decpt):
    # The record of the text 0.<figures> x 10**decpt: the first 18 significant figures
    # kept, laid out in base-100 digits from the decimal point (a single figure first when
    # decpt is odd), nine digits in the working record, then rounded.
    figures = figures[:18]
    if not figures:
        return Rec(0, 0 if neg else 1, []), 0
    exp100 = (decpt + 1) // 2 if decpt > 0 else -((-decpt) // 2)
    laid = ("0" if decpt % 2 else "") + figures
    if len(laid) % 2:
        laid += "0"
    pairs = [int(laid[i:i + 2]) for i in range(0, len(laid), 2)][:9]
    n = 0
    for d in pairs:
        n = n * 100 + d
    rec, code = record(False, n, exp100 - len(pairs))
    rec.pos = 0 if neg else 1  # the sign goes on after normalising
    return rec, code


def op_cvdbl(d):
    # The double's 15 significant figures, correctly rounded, laid out like a text's.
    if d == 0:
        return ZERO, 0
    mant, e = format(abs(d), ".14e").split("e")
    return text_value(d < 0, mant.replace(".", "").rstrip("0"), int(e) + 1)


CTX14 = decimal.Context(prec=14, rounding=decimal.ROUND_HALF_UP, Emax=10 ** 6, Emin=-(10 ** 6))


def op_todbl(v):
    if v.zero:
        return 0.0
    n, s = magnitude(v)
    exact = decimal.Decimal((1 if v.neg else 0, tuple(int(c) for c in str(n)), 2 * s))
    return float(CTX14.plus(exact))


# ---- operand generators --------------------------------------------------------------------


SPECIAL_DIGITS = (0, 99, 99, 50, 49, 1, 9, 10, 90)
DIGIT_COUNTS = (1, 1, 2, 3, 4, 5, 6, 7, 8, 8, 8, 8)


def rand_digit(rng):
    # Mostly uniform, often a digit that makes carries and rounding boundaries.
    c = rng.random()
    if c < 0.55:
        return int(c * (100 / 0.55))
    return SPECIAL_DIGITS[int((c - 0.55) * (9 / 0.45))]


def rand_rec(rng, lo=MIN_EXP, hi=MAX_EXP, exp=None, junk=True):
    rnd = rng.random
    n = DIGIT_COUNTS[int(rnd() * 12)]
    digits = [rand_digit(rng) for _ in range(n)]
    if digits[0] == 0:
        digits[0] = 1 + int(rnd() * 99)
    if digits[-1] == 0:
        digits[-1] = 1 + int(rnd() * 99)
    e = exp if exp is not None else lo + int(rnd() * (hi - lo + 1))
    j = [int(rnd() * 256) for _ in range(8)] if junk and rnd() < 0.2 else None
    return Rec(e, int(rnd() * 2), digits, j)


def rand_pair(rng):
    c = rng.random()
    if c < 0.01:
        return rng.choice((NULL, ZERO)), rand_rec(rng)
    if c < 0.02:
        return rand_rec(rng), rng.choice((NULL, ZERO, Rec(7, 0, [])))
    if c < 0.08:  # near the top or the bottom of the range
        a = rand_rec(rng, 55, 63) if rng.random() < 0.5 else rand_rec(rng, -64, -56)
        b = rand_rec(rng, a.exp - 3, min(63, a.exp + 3)) if a.exp > 0 else rand_rec(
            rng, max(-64, a.exp - 3), a.exp + 3)
        return a, b
    if c < 0.25:  # nearly equal magnitudes: cancellation
        a = rand_rec(rng, -20, 20)
        b = Rec(a.exp, rng.choice((0, 1)), list(a.digits))
        i = rng.randrange(len(b.digits))
        b.digits[i] = rng.randrange(100)
        if b.digits[0] == 0:
            b.digits[0] = 1
        while b.digits and b.digits[-1] == 0:
            b.digits.pop()
        if not b.digits:
            b.digits = [1]
        return a, b
    a = rand_rec(rng, -30, 30)
    b = rand_rec(rng, a.exp - 11, a.exp + 11)
    return a, b


def rand_text(rng):
    # A text and its expected record and code, built from parts whose meaning is known.
    c = rng.random()
    if c < 0.01:
        t = " " * rng.randrange(5)
        return t, NULL, 0
    lead = " " * rng.choice((0, 0, 0, 1, 2))
    sign = rng.choice(("", "", "-", "+"))
    zeros = "0" * rng.choice((0, 0, 0, 1, 3))
    nint = rng.choice((0, 1, 2, 3, 5, 9, 16, 17, 18, 19, 25))
    intd = "".join(rng.choice("0123456789") for _ in range(nint))
    if intd and intd[0] == "0":
        intd = str(rng.randrange(1, 10)) + intd[1:]
    has_point = rng.random() < 0.7 or not intd
    nfrac = rng.choice((0, 1, 2, 4, 8, 15, 20)) if has_point else 0
    fzeros = "0" * rng.choice((0, 0, 1, 2, 5, 30)) if has_point and not intd else ""
    fracd = "".join(rng.choice("0123456789") for _ in range(nfrac))
    if not intd and not fracd and not fzeros:
        fracd = str(rng.randrange(1, 10))
    ex = 0
    etext = ""
    if rng.random() < 0.4:
        ex = rng.choice((rng.randint(-40, 40), rng.randint(-300, 300), rng.randint(-999, 999)))
        esign = "-" if ex < 0 else rng.choice(("", "+"))
        etext = rng.choice("eE") + esign + "0" * rng.choice((0, 0, 1)) + str(abs(ex))
    trail = " " * rng.choice((0, 0, 0, 1, 3))
    mantissa = zeros + intd + ("." if has_point else "") + fzeros + fracd
    text = lead + sign + mantissa + etext + trail
    fault = rng.random()
    if fault < 0.04:
        text = lead + sign + mantissa + "." + "5" + etext + trail
        if has_point:
            return text, NULL, BADTEXT
        text = lead + sign + zeros + intd + "." + fzeros + fracd + "." + etext + trail
        return text, NULL, BADTEXT
    if fault < 0.08:
        junk = rng.choice("x,;-+/")  # none of them can continue the number
        return lead + sign + mantissa + etext + junk + "1" + trail, NULL, BADTEXT
    if fault < 0.10:
        big = rng.randint(1000, 99999)
        return lead + sign + mantissa + "e" + rng.choice(("", "-", "+")) + str(big), NULL, BADEXP
    # significant figures and the decimal point position relative to the first of them
    allfig = intd + fzeros + fracd
    sig = allfig.lstrip("0")
    if intd:
        decpt = len(intd)
    else:
        decpt = -(len(allfig) - len(sig))
    return text, *text_value(sign == "-", sig.rstrip("0") if sig else "", decpt + ex if sig else 0)


def rand_double(rng):
    c = rng.random()
    if c < 0.25:
        bits = rng.getrandbits(64)
        d = struct.unpack("<d", struct.pack("<Q", bits))[0]
        if d != d or d in (float("inf"), float("-inf")):
            return 1.5
        return d
    if c < 0.35:  # 16-figure integers: exact ties at the fifteenth figure
        n = rng.randrange(10 ** 15, 9 * 10 ** 15) // 10 * 10 + rng.choice((5, 5, 4, 6))
        return float(n) * rng.choice((1, -1))
    if c < 0.40:
        return float(rng.randint(-10 ** 6, 10 ** 6)) / rng.choice((1, 2, 4, 8, 10, 100, 1000))
    if c < 0.42:
        return rng.choice((0.0, -0.0, 1e-300, 5e-324, 1.7976931348623157e308))
    mant = rng.random() + rng.randrange(1, 10)
    return mant * 10.0 ** rng.randint(-135, 130) * rng.choice((1, -1))


def rand_todbl_rec(rng):
    c = rng.random()
    if c < 0.01:
        return Rec(rng.randint(-5, 5), rng.choice((0, 1)), [])
    if c < 0.05:  # near half of the fourteenth figure
        r = rand_rec(rng, -64, 63)
        r.digits = [rng.randrange(10, 100)] + [rng.randrange(100) for _ in range(5)] + [
            rng.choice((49, 50, 99, 0)), rng.choice((50, 49, 1))]
        return r
    return rand_rec(rng)


# ---- writing -------------------------------------------------------------------------------


def i32(n):
    return struct.pack("<i", n)


def check_div_model(a, b, r, worst):
    # The long-division model against the exact quotient: the remainder keeps nine places,
    # so each of the seven steps whose divisor reaches past place 9 leaves it off by less than
    # two units of place 8, and the last quotient digit strays by at most about fourteen units
    # (seven are seen in a million quotients). Returns the larger of `worst` and this stray.
    if a.null or b.null or b.zero or a.zero:
        return worst
    s, _ = div_summary(a, b)
    if (r.exp, r.pos, r.digits) == (s.exp, s.pos, s.digits):
        return worst
    units = abs(value(r) - value(s)) / fractions.Fraction(100) ** (s.exp - 8)
    if units > 16:
        sys.exit("division model strays from the exact quotient: %s %s" % (a.pack().hex(),
                                                                          b.pack().hex()))
    return max(worst, units)


def vectors(rng, count, stats):
    # Every vector as its tag byte and payload, `count` per operation.
    for tag, fn in ((1, op_add), (2, op_sub), (3, op_mul), (4, op_div)):
        for _ in range(count):
            a, b = rand_pair(rng)
            r, code = fn(a, b)
            if tag == 4:
                stats["worst"] = check_div_model(a, b, r, stats["worst"])
            yield tag, a.pack() + b.pack() + r.pack() + i32(code)
    for tag, fn in ((5, to_places("round")), (6, to_places("trunc"))):
        for _ in range(count):
            v = rand_rec(rng, -12, 12) if rng.random() < 0.9 else rand_rec(rng)
            if rng.random() < 0.01:
                v = rng.choice((NULL, ZERO))
            places = rng.choice((rng.randint(0, 20), rng.randint(0, 40), -1, rng.randint(0, 5)))
            r, code = fn(v, places)
            yield tag, v.pack() + i32(places) + r.pack() + i32(code)
    for _ in range(count):
        text, r, code = rand_text(rng)
        yield 7, i32(len(text.encode())) + text.encode() + r.pack() + i32(code)
    for _ in range(count):
        d = rand_double(rng)
        r, code = op_cvdbl(d)
        yield 8, struct.pack("<d", d) + r.pack() + i32(code)
    for _ in range(count):
        v = rand_todbl_rec(rng)
        yield 9, v.pack() + struct.pack("<d", op_todbl(v))


def main():
    out = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 100000
    rng = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 20261123)
    stats = {"worst": 0}
    with open(out + ".tmp", "wb") as f:
        for tag, payload in vectors(rng, count, stats):
            f.write(bytes([tag]) + payload)
    os.replace(out + ".tmp", out)
    print("wrote %d vectors per operation to %s; division quotients stray from the exact "
          "quotient by at most %s units of the last digit" % (count, out, stats["worst"]))


if __name__ == "__main__":
    main()
