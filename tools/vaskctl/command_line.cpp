// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "command_line.h"

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>

#include "complaint.h"

namespace vaskctl {

struct command_line::option {
    GOptionEntry entry = {};
    bool* flag = nullptr;
    int* number = nullptr;
    std::string* text = nullptr;
    gboolean given_flag = FALSE;
    gchar* given_text = nullptr;
};

namespace {

struct context_deleter {
    void operator()(GOptionContext* context) const { g_option_context_free(context); }
};

struct strv_deleter {
    void operator()(gchar** texts) const { g_strfreev(texts); }
};
using unique_strv = std::unique_ptr<gchar*, strv_deleter>;

// GLib's parser changes what it is given.
unique_strv make_argv(const std::string& name, const std::vector<std::string>& words) {
    gchar** argv = g_new0(gchar*, words.size() + 2);
    argv[0] = g_strdup(name.c_str());
    for (std::size_t i = 0; i < words.size(); ++i) {
        argv[i + 1] = g_strdup(words[i].c_str());
    }
    return unique_strv(argv);
}

}  // namespace

command_line::command_line(const char* verb, const char* parameters, const char* description)
    : m_verb(std::string("vaskctl ") + verb), m_parameters(parameters), m_description(description) {
    add_flag("json", "Print JSON", &json);
    add_flag("no-legend", "Print neither a header nor a remark that is not asked for", &no_legend);
}

command_line::~command_line() {
    for (option* each : m_options) {
        g_free(each->given_text);
        delete each;
    }
}

command_line::option& command_line::add(const char* name, const char* help, const char* unit) {
    option* added = new option;
    added->entry.long_name = name;
    added->entry.description = help;
    added->entry.arg_description = unit;
    m_options.push_back(added);
    return *added;
}

void command_line::add_flag(const char* name, const char* help, bool* value) {
    option& added = add(name, help, nullptr);
    added.flag = value;
    added.entry.arg = G_OPTION_ARG_NONE;
    added.entry.arg_data = &added.given_flag;
}

void command_line::add_number(const char* name, const char* help, const char* unit, int* value) {
    option& added = add(name, help, unit);
    added.number = value;
    added.entry.arg = G_OPTION_ARG_INT;
    added.entry.arg_data = value;
}

void command_line::add_text(const char* name, const char* help, const char* unit,
                            std::string* value) {
    option& added = add(name, help, unit);
    added.text = value;
    added.entry.arg = G_OPTION_ARG_STRING;
    added.entry.arg_data = &added.given_text;
}

GOptionContext* command_line::make_context() {
    g_set_prgname(m_verb.c_str());
    GOptionContext* context = g_option_context_new(m_parameters);
    g_option_context_set_summary(context, m_description);
    std::vector<GOptionEntry> entries;
    for (const option* each : m_options) {
        entries.push_back(each->entry);
    }
    entries.push_back({});
    g_option_context_add_main_entries(context, entries.data(), nullptr);
    return context;
}

void command_line::parse(const std::vector<std::string>& words) {
    const auto dashes = std::find(words.begin(), words.end(), "--");
    m_has_dashes = dashes != words.end();
    if (m_has_dashes) {
        m_behind_dashes.assign(dashes + 1, words.end());
    }

    const std::unique_ptr<GOptionContext, context_deleter> context(make_context());
    const unique_strv owned = make_argv(m_verb, {words.begin(), dashes});
    // The parser moves the words about; the copy of the pointers keeps all of them to be freed.
    const std::unique_ptr<gchar*, void (*)(gpointer)> left(
        static_cast<gchar**>(
            g_memdup2(owned.get(), (g_strv_length(owned.get()) + 1) * sizeof(gchar*))),
        g_free);
    gchar** argv = left.get();
    int argc = static_cast<int>(g_strv_length(argv));
    GError* error = nullptr;
    if (!g_option_context_parse(context.get(), &argc, &argv, &error)) {
        const std::string text = error->message;
        g_error_free(error);
        throw complaint(status_usage, text + "; see \"" + m_verb + " --help\"");
    }
    m_words.assign(argv + 1, argv + argc);
    m_words.insert(m_words.end(), m_behind_dashes.begin(), m_behind_dashes.end());
    for (const option* each : m_options) {
        if (each->flag != nullptr) {
            *each->flag = each->given_flag != FALSE;
        } else if (each->text != nullptr && each->given_text != nullptr) {
            *each->text = each->given_text;
        }
    }
}

void command_line::expect_words(std::size_t least, std::size_t most) const {
    if (m_words.size() < least || m_words.size() > most) {
        throw complaint(status_usage, "usage: " + m_verb + " [OPTION...] " +
                                          (m_parameters != nullptr ? m_parameters : ""));
    }
}

long long parse_number(const std::string& text, const char* what) {
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0) {
        throw complaint(status_usage, "'" + text + "' is not " + what);
    }
    return number;
}

}  // namespace vaskctl
