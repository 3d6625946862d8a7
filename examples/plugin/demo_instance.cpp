// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_instance.h"

#include <string.h>

#include "exception_barrier.h"
#include "script_value.h"

namespace {

constexpr int panel_height = 90;

}  // namespace

demo_instance::demo_instance(const char* name)
    : vask_np_instance(name),
      m_child(new plugin_bridge(*this)),
      m_child_window([this] { give_window_to_child(); }, [this] { redraw(); }),
      m_ring_count(0) {
    method_map["describe"] = static_cast<script_method>(&demo_instance::describe);
    method_map["echo"] = static_cast<script_method>(&demo_instance::echo);
    method_map["greet"] = static_cast<script_method>(&demo_instance::greet);
    method_map["ring"] = static_cast<script_method>(&demo_instance::ring);
    method_map["start"] = static_cast<script_method>(&demo_instance::start);

    // In place of the library's methods.
    method_map["del_callback"] = static_cast<script_method>(&demo_instance::remove_callback);
    method_map["detachEvent"] = method_map["del_callback"];

    getter_map["title"] = static_cast<property_getter>(&demo_instance::get_title);
    setter_map["title"] = static_cast<property_setter>(&demo_instance::set_title);
    getter_map["width"] = static_cast<property_getter>(&demo_instance::get_width);
    getter_map["height"] = static_cast<property_getter>(&demo_instance::get_height);
    getter_map["child"] = static_cast<property_getter>(&demo_instance::get_child);
    getter_map["is_ready"] = static_cast<property_getter>(&demo_instance::get_is_ready);

    add_jscb_func("changed");
    add_jscb_func("rang");
    add_jscb_func("crashed");

    // It has no window of its own that a toolkit could embed.
    needs_xembed = false;
}

void demo_instance::detach() {
    // The browser may hold this object for long after, and by then the NPP is gone.
    npp = nullptr;
    m_child.reset();
    m_child_window.place(XCB_NONE, 0, 0);
}

// Without a child this instance is of use all the same: parse_props() tries again.
void demo_instance::init_preload() {
    end_exceptions("init_preload", [this] { start_child(); });
}

void demo_instance::parse_props(int16_t argc, char** argn, char** argv) {
    vask_np_instance::parse_props(argc, argn, argv);
    for (int16_t i = 0; i < argc; ++i) {
        // Pages write attributes in any case, and without a value.
        if (strcasecmp(argn[i], "title") == 0 && argv[i] != nullptr) {
            m_title = argv[i];
        }
    }
    // The element is drawn by handle_event(), not in a window of its own.
    NPN_SetValue(npp, NPPVpluginWindowBool, nullptr);
    start_child();
}

NPError demo_instance::set_window(NPP for_npp, NPWindow* window) {
    vask_np_instance::set_window(for_npp, window);
    save_window_data(window);
    m_painter.set_window(window);
    // The browser's own window; none where it has no display.
    unsigned long browser = 0;
    NPN_GetValue(for_npp, NPNVnetscapeWindow, &browser);
    m_child_window.place(static_cast<xcb_window_t>(browser), get_window_width(),
                         get_window_height() - panel_height);
    return NPERR_NO_ERROR;
}

int16_t demo_instance::handle_event(NPP, void* event) {
    const XGraphicsExposeEvent* request = as_request_to_draw(event);
    if (request == nullptr) {
        return kNPEventNotHandled;
    }
    const std::string child =
        m_child != nullptr ? "child " + std::to_string(m_child->get_child_pid()) : "";
    const std::string ring = m_ring_count > 0 ? "rang: " + m_last_ring : "has not rung yet";
    m_painter.draw(*request, {m_title, child, ring});
    m_child_window.copy_to(static_cast<xcb_drawable_t>(request->drawable), 0, panel_height);
    return kNPEventHandled;
}

// The browser calls what follows on an object that it holds, even after detach(). An exception ends
// in the library, and the script's call fails.

bool demo_instance::describe(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    std::string text;
    for (uint32_t i = 0; i < arg_count; ++i) {
        text += (i == 0 ? "" : ", ") + describe_value(args[i]);
    }
    return store_text(text, result);
}

bool demo_instance::echo(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    return arg_count == 1 && store_value(args[0], result);
}

bool demo_instance::greet(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    std::string reply;
    return check_script_args(arg_count, args, 1, NPVariantType_String) && m_child != nullptr &&
           m_child->greet(NPVariant_to_string(&args[0]), reply) && store_text(reply, result);
}

bool demo_instance::ring(const NPVariant* args, uint32_t arg_count, NPVariant*) {
    return check_script_args(arg_count, args, 1, NPVariantType_String) && m_child != nullptr &&
           m_child->ring(NPVariant_to_string(&args[0]));
}

bool demo_instance::start(const NPVariant*, uint32_t, NPVariant*) {
    start_child();
    return m_child != nullptr;
}

bool demo_instance::remove_callback(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    std::string name;
    NPObject* function = nullptr;
    if (!chk_jscb_request_param(args, arg_count, name, function)) {
        return true;
    }
    // The library releases what it is given, whatever is registered: with other functions than its
    // own, a page could have memory freed that is in use. So only the name is the page's to say.
    if (NPObject* registered = get_jscb_npobj(name.c_str())) {
        function = registered;
    }
    NPVariant own_args[] = {args[0], args[1]};
    OBJECT_TO_NPVARIANT(function, own_args[1]);
    return del_jscb_request(own_args, 2, result);
}

bool demo_instance::get_title(NPVariant* result) {
    return store_text(m_title, result);
}

bool demo_instance::set_title(const NPVariant* value) {
    if (!NPVARIANT_IS_STRING(*value)) {
        return false;
    }
    m_title = NPVariant_to_string(value);
    redraw();
    const std::string name = "title";
    call_page("changed", {borrowed(name), *value});
    return true;
}

bool demo_instance::get_width(NPVariant* result) {
    INT32_TO_NPVARIANT(get_window_width(), *result);
    return true;
}

bool demo_instance::get_height(NPVariant* result) {
    INT32_TO_NPVARIANT(get_window_height(), *result);
    return true;
}

bool demo_instance::get_child(NPVariant* result) {
    INT32_TO_NPVARIANT(m_child != nullptr ? m_child->get_child_pid() : -1, *result);
    return true;
}

bool demo_instance::get_is_ready(NPVariant* result) {
    BOOLEAN_TO_NPVARIANT(m_child != nullptr && m_child->is_child_ready(), *result);
    return true;
}

void demo_instance::child_rang(const char* text) {
    m_last_ring = text;
    ++m_ring_count;
    redraw();
    const std::string copy = text;
    NPVariant count;
    INT32_TO_NPVARIANT(m_ring_count, count);
    call_page("rang", {borrowed(copy), count});
}

void demo_instance::child_crashed() {
    redraw();
    call_page("crashed", {});
}

void demo_instance::start_child() {
    if (m_child != nullptr && m_child->get_child_pid() < 0) {
        m_child->start_child();
    }
}

void demo_instance::give_window_to_child() {
    if (m_child != nullptr) {
        m_child->set_window(0, 0, m_child_window.get_width(), m_child_window.get_height(),
                            m_child_window.get_id());
    }
}

void demo_instance::redraw() {
    if (npp == nullptr || get_window_width() <= 0) {
        return;
    }
    NPRect whole = {0, 0, static_cast<uint16_t>(get_window_height()),
                    static_cast<uint16_t>(get_window_width())};
    NPN_InvalidateRect(npp, &whole);
}

void demo_instance::call_page(const char* callback, const std::vector<NPVariant>& args) {
    NPObject* function = get_jscb_npobj(callback);
    if (npp == nullptr || function == nullptr) {
        return;
    }
    // The function may detach itself, or remove the element and with it this object: it gets a
    // reference for the time of the call, after which only the browser's functions are used.
    NPNFuncs.retainobject(function);
    NPVariant unused;
    VOID_TO_NPVARIANT(unused);
    if (NPNFuncs.invokeDefault(npp, function, args.data(), static_cast<uint32_t>(args.size()),
                               &unused)) {
        NPNFuncs.releasevariantvalue(&unused);
    }
    NPNFuncs.releaseobject(function);
}
