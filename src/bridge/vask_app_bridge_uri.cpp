// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_app_bridge.h"

namespace {

const char scheme_end[] = "://";
constexpr std::string::size_type scheme_end_length = sizeof(scheme_end) - 1;

}  // namespace

bool vask_app_bridge::set_base_uri(std::string& uri, vask_error* err) {
    if (uri.find(scheme_end) == std::string::npos) {
        return report_failure(VASK_P_ERR, VASK_ERR_INVALID_URI,
                              vask_sprintf("Invalid URI: '%s'.", uri.c_str()), err);
    }
    m_base_uri = uri;
    return true;
}

const std::string& vask_app_bridge::get_base_uri() const {
    return m_base_uri;
}

std::string vask_app_bridge::convert_to_uri(const std::string& fname, vask_error* err) {
    const std::string::size_type scheme_length = m_base_uri.find(scheme_end);
    if (scheme_length == std::string::npos) {
        report_failure(VASK_P_ERR, VASK_ERR_INVALID_URI,
                       vask_sprintf("Wrong call of conver_to_uri: '%s'", m_base_uri.c_str()), err);
        return std::string();
    }
    std::string uri = m_base_uri;
    if (!fname.empty() && fname[0] == '/') {
        // Without a path in the base there is nothing to cut.
        const auto path = uri.find('/', scheme_length + scheme_end_length);
        if (path != std::string::npos) {
            uri.erase(path);
        }
    }
    vask_p(VASK_P_DBG, "uri: %s\n", uri.c_str());
    vask_p(VASK_P_DBG, "fname: %s\n", fname.c_str());
    uri += fname;
    vask_p(VASK_P_DBG, "uri: %s\n", uri.c_str());
    return uri;
}
