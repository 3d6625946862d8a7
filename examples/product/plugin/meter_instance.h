// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef METER_INSTANCE_H
#define METER_INSTANCE_H

#include <vask_np_instance.h>

#include <memory>
#include <string>
#include <vector>

#include "meter_bridge.h"

/**
 * An element of a page:
 *
 *     <embed id="meter" type="application/x-meter">
 *     <script>
 *         meter.configure({unit: "kB"});
 *         meter.attachEvent("measured", function (what, value, unit) { ... });
 *         meter.attachEvent("failed", function (what) { ... });
 *         meter.measure("memory");
 *         meter.last;  // "memory 123456"
 *     </script>
 */
class meter_instance : public vask_np_instance, private meter_listener {
public:
    /** @param child_program  measures for it */
    explicit meter_instance(const std::string& child_program);

    /** The element is gone. The page may hold the object for longer, but it does nothing more. */
    void detach();

private:
    bool measure(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool configure(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool remove_callback(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool get_last(NPVariant* result);

    void measured(const std::string& what, const std::string& value) override;
    void failed(const std::string& what) override;
    void call_page(const char* callback, const std::vector<std::string>& texts);

    std::unique_ptr<meter_bridge> m_bridge;
    std::string m_last;
    std::string m_unit;
};

#endif
