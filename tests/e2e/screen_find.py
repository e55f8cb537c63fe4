#!/usr/bin/env python3
"""Finds things on a screenshot for the end-to-end scripts.

screen_find.py SHOT.png origin RRGGBB
    the top-left screen pixel of the first area of that colour (the picture)
screen_find.py SHOT.png field X0 Y0 Y1
    the first number box of the options bar: scanning the bar (rows Y0..Y1
    below the window's top-left X0,Y0) for the field colour of the theme
Prints "X Y", or nothing when it is not there.
"""
import subprocess
import sys


def load(path):
    ppm = subprocess.run(["convert", path, "ppm:-"], check=True, capture_output=True).stdout
    fields, pos = [], 0
    while len(fields) < 4:
        while ppm[pos:pos + 1].isspace():
            pos += 1
        end = pos
        while not ppm[end:end + 1].isspace():
            end += 1
        fields.append(ppm[pos:end])
        pos = end
    width, height = int(fields[1]), int(fields[2])
    return width, height, ppm[pos + 1:]


def main():
    width, height, pixels = load(sys.argv[1])

    def at(x, y):
        i = (y * width + x) * 3
        return pixels[i:i + 3]

    if sys.argv[2] == "origin":
        want = bytes.fromhex(sys.argv[3])
        for y in range(height):
            row = pixels[y * width * 3:(y + 1) * width * 3]
            i = row.find(want)
            while i >= 0 and i % 3:
                i = row.find(want, i + 1)
            if i >= 0:
                print(i // 3, y)
                return
    elif sys.argv[2] == "field":
        x0, y0, y1 = int(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5])
        field = bytes.fromhex("1E1F22")
        for y in range(y0, y1):
            for x in range(x0, width):
                if at(x, y) == field and at(x + 6, y) == field and at(x, y + 4) == field:
                    print(x + 6, y + 4)
                    return


main()
