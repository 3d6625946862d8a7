// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_window_props.h"

vask_window_props::vask_window_props()
    : m_x(-1), m_y(-1), m_width(-1), m_height(-1), m_xid(0), m_changed(false) {}

vask_window_props::~vask_window_props() = default;

void vask_window_props::save_window_data(int x, int y, int width, int height,
                                         vask_window_id_t xid) {
    m_changed = x != m_x || y != m_y || width != m_width || height != m_height || xid != m_xid;
    m_x = x;
    m_y = y;
    m_width = width;
    m_height = height;
    m_xid = xid;
}

void vask_window_props::get_window_data(int& x, int& y, int& width, int& height,
                                        vask_window_id_t& xid) const {
    x = m_x;
    y = m_y;
    width = m_width;
    height = m_height;
    xid = m_xid;
}

int vask_window_props::get_window_x() const {
    return m_x;
}

int vask_window_props::get_window_y() const {
    return m_y;
}

int vask_window_props::get_window_width() const {
    return m_width;
}

int vask_window_props::get_window_height() const {
    return m_height;
}

vask_window_id_t vask_window_props::get_window_xid() const {
    return m_xid;
}

bool vask_window_props::is_window_data_changed() const {
    return m_changed;
}
