#!/usr/bin/env python3
"""Writes sh/sh_direct_gen.inc: the closed-form real spherical harmonics of bands 0..15.

Every value is derived here from first principles with exact rational arithmetic, so the C++
side holds no hand-typed polynomial. The basis is the orthonormal real one with the
Condon-Shortley phase:

    Y(l, 0)  = K(l, 0) P(l, 0)(z)
    Y(l, m)  = sqrt(2) K(l, m) P(l, m)(z) cos(m phi)      m > 0
    Y(l, -m) = sqrt(2) K(l, m) P(l, m)(z) sin(m phi)      m > 0

with K(l, m)^2 = (2l+1)/(4 pi) (l-m)!/(l+m)! and P(l, m)(z) = (-1)^m (1-z^2)^(m/2) D^m P_l(z).
On the unit sphere (1-z^2)^(m/2) cos(m phi) = Re (x+iy)^m and ... sin(m phi) = Im (x+iy)^m, so
each value is

    C(l, m) * Q(l, m)(z^2) * z^p * A_m(x, y)

where D^m P_l(z) = c z^p Q(z^2) with Q an integer polynomial with coprime coefficients and
positive leading coefficient, and every remaining factor (sign, c, sqrt(2), K) is folded into
the one constant C(l, m). C(l, m)^2 is a rational multiple of 1/pi; the constant is printed as
the correctly rounded double of the exact value.

Usage: gen_sh_direct.py [output path]   (default: sh/sh_direct_gen.inc next to this tool)
"""

import decimal
import math
import os
import sys
from fractions import Fraction

MAX_BAND = 15
DIGITS = 80  # working precision of the constants, far beyond a double's 17 digits


# ---- exact polynomials --------------------------------------------------------------------------
# A polynomial is a list of Fractions, index = power of z.

def PolyMul(a, b):
    out = [Fraction(0)] * (len(a) + len(b) - 1)
    for i, ai in enumerate(a):
        for j, bj in enumerate(b):
            out[i + j] += ai * bj
    return out


def PolyDerive(a):
    return [a[i] * i for i in range(1, len(a))] or [Fraction(0)]


def LegendreDerivative(l, m):
    """D^m P_l(z) by Rodrigues' formula: P_l = D^l (z^2-1)^l / (2^l l!)."""
    poly = [Fraction(1)]
    for _ in range(l):
        poly = PolyMul(poly, [Fraction(-1), Fraction(0), Fraction(1)])
    for _ in range(l + m):
        poly = PolyDerive(poly)
    scale = Fraction(1, 2 ** l * math.factorial(l))
    return [c * scale for c in poly]


def SplitParity(poly, l, m):
    """Writes D^m P_l as content * z^p * Q(z^2) with Q integer, coprime, leading term > 0."""
    p = (l - m) % 2
    # Only powers of parity p occur; Q's coefficient k belongs to z^(p + 2k).
    for power, c in enumerate(poly):
        assert c == 0 or power % 2 == p, (l, m)
    q = [poly[p + 2 * k] if p + 2 * k < len(poly) else Fraction(0)
         for k in range((l - m - p) // 2 + 1)]
    denominators = math.lcm(*[c.denominator for c in q])
    numerators = math.gcd(*[c.numerator for c in q])
    content = Fraction(numerators, denominators)
    if q[-1] < 0:
        content = -content
    ints = [c / content for c in q]
    assert all(c.denominator == 1 for c in ints)
    return content, p, [int(c) for c in ints]


# ---- correctly rounded constants ----------------------------------------------------------------

def DecimalPi():
    """pi by Machin's formula, 16 atan(1/5) - 4 atan(1/239), at the working precision."""
    def ArcTanInv(n):
        total = term = decimal.Decimal(1) / n
        n2 = n * n
        k = 1
        while True:
            term /= -n2
            delta = term / (2 * k + 1)
            if total + delta == total:
                return total
            total += delta
            k += 1
    return 16 * ArcTanInv(5) - 4 * ArcTanInv(239)


def NearestDouble(square, sign, pi):
    """The double nearest to sign * sqrt(square / pi), square a positive Fraction."""
    value = (decimal.Decimal(square.numerator) / decimal.Decimal(square.denominator) / pi).sqrt()
    exact = Fraction(value)
    result = float(exact)  # Fraction -> float rounds correctly
    # The working value is good to ~DIGITS digits; make sure that cannot move the rounding.
    ulp = Fraction(math.ulp(result))
    distanceToTie = abs(abs(exact - Fraction(result)) - ulp / 2)
    assert distanceToTie > exact * Fraction(1, 10 ** (DIGITS - 10)), square
    return sign * result


def Constant(l, m, content, pi):
    """C(l, m) for m >= 0: (-1)^m * content * sqrt(factor (2l+1)/(4 pi) (l-m)!/(l+m)!)."""
    factor = 1 if m == 0 else 2
    square = (content * content * factor * (2 * l + 1) * math.factorial(l - m)
              / (4 * math.factorial(l + m)))
    sign = (-1 if m % 2 else 1) * (1 if content > 0 else -1)
    return NearestDouble(square, sign, pi)


# ---- code emission ------------------------------------------------------------------------------

def Literal(value):
    text = repr(float(value))
    return "V(" + text + ")"


def PolyExpression(q):
    """Q(z^2) as C++ with descending powers summed left to right; z2k names (z^2)^k."""
    terms = []
    for k in range(len(q) - 1, -1, -1):
        c = q[k]
        if c == 0:
            continue
        power = "z%d" % (2 * k) if k > 0 else None
        magnitude = abs(c)
        if power is None:
            body = Literal(magnitude)
        elif magnitude == 1:
            body = power
        else:
            body = "%s * %s" % (Literal(magnitude), power)
        if not terms:
            terms.append(body if c > 0 else "-" + body)
        else:
            terms.append(("+ " if c > 0 else "- ") + body)
    return " ".join(terms)


def ValueExpression(l, m, pi):
    am = abs(m)
    content, p, q = SplitParity(LegendreDerivative(l, am), l, am)
    constant = Constant(l, am, content, pi)
    expr = Literal(constant)
    if len(q) > 1:
        expr += " * (" + PolyExpression(q) + ")"
    else:
        assert q == [1]
    if p:
        expr += " * z"
    if am == 1:
        expr += " * " + ("x" if m > 0 else "y")
    elif am > 1:
        expr += " * " + ("c%d" if m > 0 else "s%d") % am
    return expr


def Prerequisites(l):
    """Shared subexpressions first needed by band l, in evaluation order."""
    lines = []
    if l == 2:
        # Squares are rounded to float before use; everything after stays double.
        lines += ["const V x2 = RoundToFloat(x * x);",
                  "const V y2 = RoundToFloat(y * y);",
                  "const V z2 = RoundToFloat(z * z);"]
    if l >= 4 and l % 2 == 0:
        lines.append("const V z%d = z%d * z2;" % (l, l - 2))
    if l == 2:
        lines += ["const V c2 = x2 - y2;", "const V s2 = V(2.0) * x * y;"]
    elif l >= 3:
        lines += ["const V c%d = x * c%d - y * s%d;" % (l, l - 1, l - 1),
                  "const V s%d = x * s%d + y * c%d;" % (l, l - 1, l - 1)]
    return lines


def BandLines(l, pi, indexOf):
    return ["out.Put(%d, %s);" % (indexOf(l, m), ValueExpression(l, m, pi))
            for m in range(-l, l + 1)]


def Generate():
    decimal.getcontext().prec = DIGITS
    pi = DecimalPi()
    out = []
    emit = out.append
    emit("// Generated by tools/gen_sh_direct.py; do not edit. Regenerate with")
    emit("//   python3 tools/gen_sh_direct.py sh/sh_direct_gen.inc")
    emit("//")
    emit("// Real orthonormal spherical harmonics with the Condon-Shortley phase as polynomials in")
    emit("// x, y, z with r^2 = 1. V is a lane type holding one or more doubles with +, -, * and")
    emit("// construction from a double; RoundToFloat(V) rounds each lane to float and back. Both")
    emit("// functions issue the same operations in the same order for a given (l, m), so every")
    emit("// lane type and both entry points produce the same bits. zK is z^K, cM + i sM is")
    emit("// (x + iy)^M. Sink::Put(k, V) receives value k of the set.")
    emit("")
    emit("// Bands 0..order with Y(l, m) at l*l + l + m; order <= %d." % MAX_BAND)
    emit("template <class V, class Sink>")
    emit("inline void EvalBands(V x, V y, V z, Sink& out, unsigned order) {")
    for l in range(MAX_BAND + 1):
        if l > 0:
            emit("  if (order < %du) return;" % l)
        emit("  // Band %d" % l)
        for line in Prerequisites(l):
            emit("  " + line)
        for line in BandLines(l, pi, lambda l_, m_: l_ * l_ + l_ + m_):
            emit("  " + line)
    emit("}")
    emit("")
    emit("// Band `band` alone with Y(band, m) at band + m; band <= %d." % MAX_BAND)
    emit("template <class V, class Sink>")
    emit("inline void EvalOneBand(V x, V y, V z, Sink& out, unsigned band) {")
    emit("  switch (band) {")
    for l in range(MAX_BAND + 1):
        emit("    case %d: {" % l)
        for k in range(2, l + 1):
            for line in Prerequisites(k):
                emit("      " + line)
        for line in BandLines(l, pi, lambda l_, m_: l_ + m_):
            emit("      " + line)
        emit("      return;")
        emit("    }")
    emit("    default:")
    emit("      return;")
    emit("  }")
    emit("}")
    return "\n".join(out) + "\n"


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "sh", "sh_direct_gen.inc")
    text = Generate()
    with open(path, "w", newline="\n") as f:
        f.write(text)


if __name__ == "__main__":
    main()
