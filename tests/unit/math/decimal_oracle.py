#!/usr/bin/env python3
# Writes test vectors for the decimal library: random operands and the results the
# library must give, computed with exact integer arithmetic and Python's decimal module
# from the documented rules (half away from zero on the guard digit, the truncations of
# multiplication and division, the text and double conversions). Nothing here is taken
# from the C++ code.
#
# usage: decimal_oracle.py OUTPUT [COUNT_PER_OPERATION] [SEED]
# One vector a line: "operation operands = outcome", records written
# "<sign>[<base-100 digits>]e<exponent>" or "null", texts with "_" for a blank, doubles
# as Python writes them, a double outcome as its 8 bytes in hex.

import decimal
import fractions
import random
import struct
import sys

OVERFLOW, UNDERFLOW, DIVZERO, BADTEXT, BADEXP, NEGPLACES = -1200, -1201, -1202, -1213, -1216, -1
NULL, ZERO = (0, 255, []), (0, 1, [])  # records: (exponent, sign byte, base-100 digits)


def show(r):
    return "null" if r[1] == 255 else "%s[%s]e%d" % ("-" if r[1] == 0 else "+",
                                                   ",".join(map(str, r[2])), r[0])


def number(digits):
    return int("".join("%02d" % d for d in digits) or "0")


def magnitude(r):  # (N, s) with |value| = N * 100**s
    return number(r[2]), r[0] - len(r[2])


def value(r):
    n, s = magnitude(r)
    return (-1 if r[1] == 0 else 1) * fractions.Fraction(n) * fractions.Fraction(100) ** s


def base100(n):
    s = "0" * (len(str(n)) % 2) + str(n)
    return [int(s[i:i + 2]) for i in range(0, len(s), 2)]


def record(neg, n, s):
    # (-1 if neg) * n * 100**s rounded half away from zero to eight digits, normalised,
    # with the range code (exponent clamped to its limit, digits kept).
    if n == 0:
        return ZERO, 0
    drop = max(0, len(base100(n)) - 8)
    q, r = divmod(n, 100 ** drop)
    digits = base100(q + (2 * r >= 100 ** drop))
    e = s + drop + len(digits)
    while digits[-1] == 0:
        digits.pop()
    code = OVERFLOW if e > 63 else UNDERFLOW if e < -64 else 0
    return (min(63, max(-64, e)), 0 if neg else 1, digits), code


def op_add(a, b):
    if a[1] == 255 or b[1] == 255:
        return NULL, 0
    if not a[2] or not b[2]:
        return (b if not a[2] else a), 0
    # The larger magnitude leads; of the smaller only the places down to the guard place
    # (the ninth) of the larger count: what lies below is dropped, not rounded.
    big, small = (a, b) if abs(value(a)) >= abs(value(b)) else (b, a)
    if big[0] - small[0] > 8:
        return big, 0
    unit = big[0] - 9
    nb, sb = magnitude(big)
    ns, ss = magnitude(small)
    ns = ns * 100 ** (ss - unit) if ss >= unit else ns // 100 ** (unit - ss)
    return record(big[1] == 0, nb * 100 ** (sb - unit) + (ns if a[1] == b[1] else -ns), unit)


def op_sub(a, b):
    if b[1] != 255 and b[2]:
        b = (b[0], 1 - b[1], b[2])
    return op_add(a, b) if a[1] != 255 else (NULL, 0)


def op_mul(a, b):
    if a[1] == 255 or b[1] == 255:
        return NULL, 0
    if not a[2] or not b[2]:
        return ZERO, 0
    # Partial products a_i * b_j at place i + j; those past place 8 are dropped.
    total = sum(x * y * 100 ** (8 - i - j) for i, x in enumerate(a[2])
                for j, y in enumerate(b[2]) if i + j <= 8)
    return record(a[1] != b[1], total, a[0] + b[0] - 10)


def op_div(a, b):
    # Long division as documented: each quotient digit from a two-digit trial divisor,
    # the running remainder kept in nine places, the divisor cut at place 9 with only the
    # hundreds of the first product past it, the digit lowered while the remainder is
    # negative, and the exponent lowered once when the first quotient digit is 0.
    if a[1] == 255 or b[1] == 255:
        return NULL, 0
    if not b[2]:
        return ZERO, DIVZERO
    bd, wexp, place, q = b[2], a[0] - b[0] + 1, 0, 0
    rem, quotient = (a[2] + [0] * 9)[:9], [0] * 9
    trial = 100 * bd[0] + (bd[1] if len(bd) > 1 else 0)
    for s in range(9):
        p = s - 1 if s > 0 and rem[s - 1] != 0 else s
        if s == 1 and q == 0:
            wexp -= 1
        elif s > 0:
            place += 1
        t = (100 * rem[p] + (rem[p + 1] if p < 8 else 0) + 1) * (100 if p != s else 1)
        q = min(t // trial, 99)
        if q == 0:
            quotient[place] = 0
            continue
        nb = min(len(bd), 9 - p)
        places = range(s + nb - 1, p - 1, -1)
        borrow = -((q * bd[9 - p]) // 100) if len(bd) > 9 - p else 0
        for x in places:
            borrow += (rem[x] if x <= 8 else 0) - (q * bd[x - s] if x >= s else 0)
            if x <= 8:
                rem[x] = borrow % 100
            borrow //= 100
        while borrow < 0:
            q, carry = q - 1, 0
            for x in places:
                carry += (rem[x] if x <= 8 else 0) + (bd[x - s] if x >= s else 0)
                if x <= 8:
                    rem[x] = carry % 100
                carry //= 100
            borrow += carry
        quotient[place] = q
    r = record(a[1] != b[1], number(quotient), wexp - 9)
    if a[2] and r[1] == 0:  # the model strays from the exact quotient by a few units at most
        exact = value(a) / value(b) / fractions.Fraction(100) ** (r[0][0] - 8)
        assert not r[0][2] or abs(abs(exact) - abs(value(r[0])) * 100 ** (8 - r[0][0])) < 17
    return r


def to_places(trunc):
    def op(v, places):
        if places < 0:
            return v, NEGPLACES
        if v[1] == 255 or v[0] + places // 2 >= len(v[2]):
            return v, 0  # nothing past the place
        n, s = magnitude(v)
        e10 = 2 * s + places
        num, den = (n * 10 ** e10, 1) if e10 >= 0 else (n, 10 ** -e10)
        q, r = divmod(num, den)
        q += not trunc and 2 * r >= den
        return record(v[1] == 0, q * 10, -(places + 1) // 2) if places % 2 else record(
            v[1] == 0, q, -places // 2)
    return op


def text_value(neg, figures, decpt):
    # The record of the text 0.<figures> x 10**decpt: 18 significant figures kept, laid out
    # in base-100 digits from the decimal point, nine in the working record, then rounded;
    # the sign goes on after normalising (so "-0" is a zero with the negative sign byte).
    figures = ("0" if decpt % 2 else "") + figures[:18]
    pairs = [int((figures + "0")[i:i + 2]) for i in range(0, len(figures), 2)][:9]
    (e, _, digits), code = record(False, number(pairs), (decpt + 1) // 2 - len(pairs))
    return (e, 0 if neg else 1, digits), code


def rand_rec(rng, lo=-64, hi=63):
    n = rng.choice((1, 1, 2, 3, 4, 5, 6, 7, 8, 8, 8, 8))
    digits = [rng.choice((rng.randrange(100), rng.choice((0, 99, 99, 50, 49, 1, 9, 10, 90))))
              for _ in range(n)]
    digits[0] = digits[0] or rng.randrange(1, 100)
    digits[-1] = digits[-1] or rng.randrange(1, 100)
    return (rng.randint(lo, hi), rng.randrange(2), digits)


def rand_pair(rng):
    c = rng.random()
    if c < 0.02:
        pair = [rand_rec(rng), rng.choice((NULL, ZERO, (7, 0, [])))]
        return pair if c < 0.01 else pair[::-1]
    if c < 0.08:  # near the top or the bottom of the range
        a = rand_rec(rng, 55, 63) if rng.random() < 0.5 else rand_rec(rng, -64, -56)
        return a, rand_rec(rng, max(-64, a[0] - 3), min(63, a[0] + 3))
    if c < 0.25:  # nearly equal magnitudes: cancellation
        a = rand_rec(rng, -20, 20)
        d = list(a[2])
        d[rng.randrange(len(d))] = rng.randrange(100)
        d[0] = d[0] or 1
        while d[-1] == 0:
            d.pop()
        return a, (a[0], rng.randrange(2), d)
    a = rand_rec(rng, -30, 30)
    return a, rand_rec(rng, a[0] - 11, a[0] + 11)


def rand_text(rng):
    # A text and its expected record and code, built from parts whose meaning is known.
    if rng.random() < 0.01:
        return " " * rng.randrange(1, 5), NULL, 0
    sign = rng.choice(("", "", "-", "+"))
    intd = "".join(rng.choice("0123456789") for _ in range(rng.choice((0, 1, 2, 5, 9, 17, 19, 25))))
    intd = (str(rng.randrange(1, 10)) + intd[1:]) if intd else ""
    point = rng.random() < 0.7 or not intd
    fzeros = "0" * rng.choice((0, 0, 1, 2, 5, 30)) if point and not intd else ""
    fracd = "".join(rng.choice("0123456789") for _ in range(rng.choice((0, 1, 2, 8, 20)) * point))
    if not intd + fzeros + fracd:
        fracd = str(rng.randrange(1, 10))
    ex = rng.choice((0, 0, rng.randint(-40, 40), rng.randint(-300, 300), rng.randint(-999, 999)))
    etext = (rng.choice("eE") + ("-" if ex < 0 else rng.choice(("", "+"))) + "0" *
             rng.randrange(2) + str(abs(ex))) if ex else ""
    lead = " " * rng.choice((0, 0, 1, 2)) + sign + "0" * rng.choice((0, 0, 1, 3))
    mantissa = lead + intd + ("." if point else "") + fzeros + fracd
    trail = " " * rng.choice((0, 0, 1, 3))
    fault = rng.random()
    if fault < 0.04:  # a second point
        return mantissa + (".5" if point else ".5.") + etext + trail, NULL, BADTEXT
    if fault < 0.08:  # none of these can continue the number
        return mantissa + etext + rng.choice("x,;-+/") + "1" + trail, NULL, BADTEXT
    if fault < 0.10:
        return mantissa + "e" + rng.choice(("", "-", "+")) + str(rng.randint(1000, 99999)), NULL, BADEXP
    sig = (intd + fzeros + fracd).lstrip("0")
    decpt = len(intd) if intd else -len(fzeros + fracd) + len(sig)
    return mantissa + etext + trail, *text_value(sign == "-", sig.rstrip("0"), decpt + ex)


def rand_double(rng):
    c = rng.random()
    if c < 0.25:
        d = struct.unpack("<d", struct.pack("<Q", rng.getrandbits(64)))[0]
        return d if d - d == 0 else 1.5  # not NaN or infinite
    if c < 0.35:  # 16-figure integers: exact ties at the fifteenth figure
        return float(rng.randrange(10 ** 14, 9 * 10 ** 14) * 10 + rng.choice((5, 5, 4, 6))) * rng.choice((1, -1))
    if c < 0.40:
        return rng.randint(-10 ** 6, 10 ** 6) / rng.choice((1, 2, 4, 8, 10, 100, 1000))
    if c < 0.42:
        return rng.choice((0.0, -0.0, 1e-300, 5e-324, 1.7976931348623157e308))
    return (rng.random() + rng.randrange(1, 10)) * 10.0 ** rng.randint(-135, 130) * rng.choice((1, -1))


def op_cvdbl(d):  # the double's 15 significant figures, correctly rounded, as a text's
    if d == 0:
        return ZERO, 0
    mant, e = format(abs(d), ".14e").split("e")
    return text_value(d < 0, mant.replace(".", "").rstrip("0"), int(e) + 1)


CTX14 = decimal.Context(prec=14, rounding=decimal.ROUND_HALF_UP, Emax=10 ** 6, Emin=-10 ** 6)


def op_todbl(v):  # the double nearest to v rounded half away to 14 figures
    n, s = magnitude(v)
    d = float(CTX14.plus(decimal.Decimal(n).scaleb(2 * s))) * (-1 if v[1] == 0 else 1)
    return struct.pack("<d", d if v[2] else 0.0).hex()


def vectors(rng, count):
    line = lambda op, args, r, code: "%s %s = %d %s" % (op, " ".join(args), code, show(r))
    for name, fn in (("add", op_add), ("sub", op_sub), ("mul", op_mul), ("div", op_div)):
        for _ in range(count):
            a, b = rand_pair(rng)
            yield line(name, (show(a), show(b)), *fn(a, b))
    for name, fn in (("decround", to_places(False)), ("trunc", to_places(True))):
        for _ in range(count):
            v = rand_rec(rng, -12, 12) if rng.random() < 0.9 else rand_rec(rng)
            v = rng.choice((NULL, ZERO)) if rng.random() < 0.01 else v
            places = rng.choice((rng.randint(0, 20), rng.randint(0, 40), -1, rng.randint(0, 5)))
            yield line(name, (show(v), str(places)), *fn(v, places))
    for _ in range(count):
        text, r, code = rand_text(rng)
        yield line("cvasc", (text.replace(" ", "_"),), r, code)
        d = rand_double(rng)
        yield line("cvdbl", (repr(d),), *op_cvdbl(d))
        v = rand_rec(rng) if rng.random() < 0.95 else (rng.randint(-5, 5), rng.randrange(2), [])
        if rng.random() < 0.05:  # near half of the fourteenth figure
            v[2][:] = [rng.randrange(10, 100)] + [rng.randrange(100) for _ in range(5)] + [
                rng.choice((49, 50, 99, 0)), rng.choice((50, 49, 1))]
        yield "todbl %s = %s" % (show(v), op_todbl(v))


def main():
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 10000
    rng = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 20261123)
    with open(sys.argv[1], "w") as out:
        for v in vectors(rng, count):
            out.write(v + "\n")


if __name__ == "__main__":
    main()
