// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_WINDOW_PROPS_H
#define VASK_WINDOW_PROPS_H

/**
 * @file
 * @brief Geometry and native id of the window that a child draws into.
 *
 * @since 2.0
 */

#include "vask_export.h"

/**
 * An X window id. It travels on the bus as a 32-bit unsigned number, which holds every X id.
 *
 * @since 2.0
 */
typedef unsigned long vask_window_id_t;

/**
 * @brief Remembers a window's geometry, and whether the last save changed it.
 *
 * The geometry is -1 until the first save, so that the first real geometry counts as a change.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_window_props {
public:
    vask_window_props();
    virtual ~vask_window_props();

    /**
     * Stores all five values; is_window_data_changed() then tells whether any of them differs from
     * the stored ones.
     *
     * @param x,y           left and top edge, in pixels
     * @param width,height  in pixels
     * @param xid           X window id
     */
    void save_window_data(int x, int y, int width, int height, vask_window_id_t xid);

    /**
     * Copies the five stored values out.
     *
     * @param x,y           receive left and top edge, in pixels
     * @param width,height  receive width and height, in pixels
     * @param xid           receives the X window id
     */
    void get_window_data(int& x, int& y, int& width, int& height, vask_window_id_t& xid) const;

    /** @return the left edge, in pixels; -1 before the first save */
    int get_window_x() const;

    /** @return the top edge, in pixels; -1 before the first save */
    int get_window_y() const;

    /** @return the width, in pixels; -1 before the first save */
    int get_window_width() const;

    /** @return the height, in pixels; -1 before the first save */
    int get_window_height() const;

    /** @return the X window id; 0 before the first save */
    vask_window_id_t get_window_xid() const;

    /** @return whether the last save changed anything; asking does not reset it */
    bool is_window_data_changed() const;

private:
    // What was saved last; -1 and window 0 before the first save. In this header, because the
    // object is a base of others, which may be copied and are made without taking memory.
    int m_x;
    int m_y;
    int m_width;
    int m_height;
    vask_window_id_t m_xid;
    // Whether that save differed from the one before in any of the five; false before the first.
    bool m_changed;
};

#endif
