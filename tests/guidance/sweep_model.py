#!/usr/bin/env python3
"""Computes the text of Mini_PP::unit_test() a second way, in plain IEEE doubles.

The local coordinates come from the vector of the prime vertical and the unit vectors at A, written down from
the textbook (IOGP 373-7-2, EPSG:9602 and 9836) and not from the library. Run it to see where the golden file
beside it comes from:  ./sweep_model.py | diff - Mini_PP_unit_test.txt
"""
from math import atan2, cos, degrees, hypot, sin, sqrt, pi

A_AXIS = 6378137.0
E2 = 0.0066943799901413
A = (-0.47123889803846897, 2.670353755551324)
ENDS = [
    ("North", (-0.4710643651132695, A[1]), 0.0),
    ("South", (-0.4714134309636684, A[1]), 180.0),
    ("East", (A[0], 2.670528288476523), 90.0),
    ("West", (A[0], 2.6701792226261247), 270.0),
]


def ecef(point):
    lat, lon = point
    prime_vertical = A_AXIS / sqrt(1 - E2 * sin(lat) ** 2)
    return (prime_vertical * cos(lat) * cos(lon), prime_vertical * cos(lat) * sin(lon),
            prime_vertical * (1 - E2) * sin(lat))


def local(point):
    """North and east of A, metres."""
    lat, lon = A
    dx, dy, dz = (p - a for p, a in zip(ecef(point), ecef(A)))
    north = -sin(lat) * cos(lon) * dx - sin(lat) * sin(lon) * dy + cos(lat) * dz
    east = -sin(lon) * dx + cos(lon) * dy
    return north, east


for name, end, expected in ENDS:
    north, east = local(end)
    heading = degrees(atan2(east, north))
    if heading < 0:
        heading += 360
    off = abs(heading - expected)
    verdict = "Okay" if off < 0.01 or abs(off - 360) < 0.01 else "Fail"
    print(f"Heading {name} hdg={heading:.2f} test={expected:.2f} {verdict}")

print("Test for(%.5f, %.5f, %.5f)" % (-0.003, 0.013, 0.0005))
finish = local(ENDS[0][1])
length = hypot(*finish)
d = -0.003
for _ in range(32):
    p = local(((d - 27.0) * pi / 180.0, 2.6703555008805764))
    along = (p[0] * finish[0] + p[1] * finish[1]) / length
    right = (p[1] * finish[0] - p[0] * finish[1]) / length
    print(f"Test deg={d:.5f}/{d / 0.01:.2f} xtrk={right:.2f} atrk={along:.2f} "
          f"dstart={hypot(*p):.2f} dfinish={hypot(p[0] - finish[0], p[1] - finish[1]):.2f}")
    d += 0.0005
