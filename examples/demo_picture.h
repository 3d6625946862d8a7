// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_PICTURE_H
#define DEMO_PICTURE_H

#include <X11/Xlib.h>

#include <array>

// The picture that a child draws: a chessboard in a colour of its own, and on a dark band across it
// its process id in digits of seven segments, as on a pocket calculator. The picture turns with the
// monitor: it is as high as wide, so that it fills the window in every position. The child paints
// by these measures and the parent reads the window's pixels by them.

struct demo_colour {
    unsigned char red, green, blue;
};

struct demo_box {
    int x, y, width, height;
};

namespace demo_picture {

constexpr int width = 360;
constexpr int height = 360;
constexpr int cell_size = 20;
constexpr int band_top = 120;
constexpr int band_height = 120;
constexpr int caption_x = 24;
constexpr int caption_y = 140;
constexpr int digits_x = 24;
constexpr int digits_y = 156;
constexpr int digit_pitch = 46;
constexpr int max_digits = 7;

constexpr demo_colour band_colour = {16, 16, 24};
constexpr demo_colour digit_colour = {255, 255, 255};
constexpr demo_colour light_cell_colour = {232, 232, 232};

/** Colour of the dark cells; two processes in a row never share it. */
demo_colour colour_of_process(int pid);

/** @return whether the cell in that column and row is a dark one */
bool is_dark_cell(int column, int row);

/** The segments of a digit, relative to its upper left corner. */
extern const std::array<demo_box, 7> segments;

/** @return the segments that are lit, bit n for segments[n]; @p digit is 0 to 9 */
unsigned int lit_segments(int digit);

/** @return the digit with exactly these segments lit, or -1 */
int digit_with_segments(unsigned int lit);

/** @return quarter turns, clockwise, of the monitor; 0 while nobody has said any */
int turns_of_monitor();

/** @return where a part of the upright picture lies after so many quarter turns */
demo_box turned(const demo_box& box, int turns);

/** @return the pixel value in a visual of true colours */
unsigned long pixel_of(demo_colour colour, const Visual& visual);

/** The inverse of pixel_of(). */
demo_colour colour_of_pixel(unsigned long pixel, const Visual& visual);

}  // namespace demo_picture

#endif
