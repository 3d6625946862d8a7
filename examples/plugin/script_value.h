// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef SCRIPT_VALUE_H
#define SCRIPT_VALUE_H

#include <npapi/npruntime.h>

#include <string>

// Values on their way between the page's script and the plug-in.

/** @return a variant that borrows the text, for an argument: valid as long as @p text is */
NPVariant borrowed(const std::string& text);

/**
 * Fills a result with a copy of a text, which becomes the browser's.
 *
 * @return false, with @p result as it was, when the browser has no memory for it
 */
bool store_text(const std::string& text, NPVariant* result);

/** Fills a result with a value of any type; a text is copied, an object gets a reference. */
bool store_value(const NPVariant& value, NPVariant* result);

/** @return type and value, e.g. "bool true" */
std::string describe_value(const NPVariant& value);

#endif
