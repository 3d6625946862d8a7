// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_UTILS_H
#define VASK_UTILS_H

/**
 * @file
 * @brief Colour unpacking.
 *
 * @since 2.0
 */

#include <cstdint>

#include "vask_export.h"

/**
 * Free functions that need no object. May be called from any thread.
 *
 * @since 2.0
 */
namespace vask_utils {

/**
 * Unpacks a pixel into channels from 0.0 to 1.0.
 *
 * @param pixel  packed as 0x00RRGGBB; its highest byte is ignored
 * @param r,g,b  receive the channels
 *
 * @since 2.0
 */
VASK_EXPORT void get_rgb_float(std::uint32_t pixel, float& r, float& g, float& b);

/**
 * Unpacks a pixel into channels from 0 to 65535.
 *
 * @param pixel  packed as 0x00RRGGBB; its highest byte is ignored
 * @param r,g,b  receive the channels
 *
 * @since 2.0
 */
VASK_EXPORT void get_rgb_uint16(std::uint32_t pixel, std::uint16_t& r, std::uint16_t& g,
                                std::uint16_t& b);

}  // namespace vask_utils

#endif
