// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Each function of the browser is reached with what the caller gave, and its answer comes back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include "vask_np_base.h"

namespace {

/** Values that differ from each other, as far as there are enough, and do not fit into fewer bits
 *  than their type has. */
template <typename Value>
Value value_number(int i) {
    if constexpr (std::is_pointer<Value>::value) {
        return reinterpret_cast<Value>(0x123456789000 + 16 * i);
    } else if constexpr (std::is_same<Value, bool>::value) {
        return i % 2 == 0;
    } else if constexpr (std::is_enum<Value>::value) {
        return static_cast<Value>(3 + i);
    } else {
        return static_cast<Value>(~Value() - static_cast<Value>(2 + i));
    }
}

/** Takes the place of an entry of the table and remembers how it was called. */
template <auto Entry, typename Type>
struct recorder;

template <auto Entry, typename Result, typename... Arguments>
struct recorder<Entry, Result (*NPNetscapeFuncs::*)(Arguments...)> {
    static Result record(Arguments... arguments) {
        ++calls;
        given = std::make_tuple(arguments...);
        if constexpr (!std::is_void<Result>::value) {
            return value_number<Result>(result_number);
        }
    }

    template <typename Wrapper, std::size_t... Index>
    static void expect_forwarded(Wrapper wrapper, int number_of_result,
                                 std::index_sequence<Index...>) {
        vask_np_base base("base");
        calls = 0;
        result_number = number_of_result;
        const std::tuple<Arguments...> arguments(value_number<Arguments>(Index)...);
        if constexpr (std::is_void<Result>::value) {
            (base.*wrapper)(std::get<Index>(arguments)...);
        } else {
            const Result result = (base.*wrapper)(std::get<Index>(arguments)...);
            EXPECT_EQ(result, value_number<Result>(result_number));
        }
        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(given == arguments);
    }

    static int calls;
    static int result_number;
    static std::tuple<Arguments...> given;
};

template <auto Entry, typename Result, typename... Arguments>
int recorder<Entry, Result (*NPNetscapeFuncs::*)(Arguments...)>::calls = 0;

template <auto Entry, typename Result, typename... Arguments>
int recorder<Entry, Result (*NPNetscapeFuncs::*)(Arguments...)>::result_number = 0;

template <auto Entry, typename Result, typename... Arguments>
std::tuple<Arguments...> recorder<Entry, Result (*NPNetscapeFuncs::*)(Arguments...)>::given;

/** All other entries are null, so that a call of one of them would not go unnoticed. */
template <auto Entry, typename Result, typename... Arguments>
void expect_forwarded_to(Result (vask_np_base::*wrapper)(Arguments...)) {
    using entry_recorder = recorder<Entry, decltype(Entry)>;
    vask_np_base::NPNFuncs = NPNetscapeFuncs();
    vask_np_base::NPNFuncs.*Entry = entry_recorder::record;
    // Two answers, so that a wrapper cannot have made one up.
    for (int result_number : {100, 101}) {
        entry_recorder::expect_forwarded(wrapper, result_number,
                                         std::index_sequence_for<Arguments...>());
    }
}

}  // namespace

TEST(browser_functions, Are_null_until_the_product_fills_the_table) {
    const NPNetscapeFuncs empty{};
    EXPECT_EQ(std::memcmp(&vask_np_base::NPNFuncs, &empty, sizeof empty), 0);
    EXPECT_FALSE(vask_np_base::setNPNFuncs);
}

TEST(browser_functions, GetURL_is_answered_by_entry_geturl) {
    expect_forwarded_to<&NPNetscapeFuncs::geturl>(&vask_np_base::GetURL);
}

TEST(browser_functions, NPN_PostURL_is_answered_by_entry_posturl) {
    expect_forwarded_to<&NPNetscapeFuncs::posturl>(&vask_np_base::NPN_PostURL);
}

TEST(browser_functions, NPN_RequestRead_is_answered_by_entry_requestread) {
    expect_forwarded_to<&NPNetscapeFuncs::requestread>(&vask_np_base::NPN_RequestRead);
}

TEST(browser_functions, NPN_NewStream_is_answered_by_entry_newstream) {
    expect_forwarded_to<&NPNetscapeFuncs::newstream>(&vask_np_base::NPN_NewStream);
}

TEST(browser_functions, NPN_WriteUPP_is_answered_by_entry_write) {
    expect_forwarded_to<&NPNetscapeFuncs::write>(&vask_np_base::NPN_WriteUPP);
}

TEST(browser_functions, NPN_DestroyStream_is_answered_by_entry_destroystream) {
    expect_forwarded_to<&NPNetscapeFuncs::destroystream>(&vask_np_base::NPN_DestroyStream);
}

TEST(browser_functions, NPN_Status_is_answered_by_entry_status) {
    expect_forwarded_to<&NPNetscapeFuncs::status>(&vask_np_base::NPN_Status);
}

TEST(browser_functions, NPN_UserAgent_is_answered_by_entry_uagent) {
    expect_forwarded_to<&NPNetscapeFuncs::uagent>(&vask_np_base::NPN_UserAgent);
}

TEST(browser_functions, NPN_MemAlloc_is_answered_by_entry_memalloc) {
    expect_forwarded_to<&NPNetscapeFuncs::memalloc>(&vask_np_base::NPN_MemAlloc);
}

TEST(browser_functions, NPN_MemFree_is_answered_by_entry_memfree) {
    expect_forwarded_to<&NPNetscapeFuncs::memfree>(&vask_np_base::NPN_MemFree);
}

TEST(browser_functions, NPN_MemFlush_is_answered_by_entry_memflush) {
    expect_forwarded_to<&NPNetscapeFuncs::memflush>(&vask_np_base::NPN_MemFlush);
}

TEST(browser_functions, NPN_ReloadPlugins_is_answered_by_entry_reloadplugins) {
    expect_forwarded_to<&NPNetscapeFuncs::reloadplugins>(&vask_np_base::NPN_ReloadPlugins);
}

TEST(browser_functions, NPN_GetJavaEnv_is_answered_by_entry_getJavaEnv) {
    expect_forwarded_to<&NPNetscapeFuncs::getJavaEnv>(&vask_np_base::NPN_GetJavaEnv);
}

TEST(browser_functions, NPN_GetJavaPeer_is_answered_by_entry_getJavaPeer) {
    expect_forwarded_to<&NPNetscapeFuncs::getJavaPeer>(&vask_np_base::NPN_GetJavaPeer);
}

TEST(browser_functions, NPN_GetURLNotify_is_answered_by_entry_geturlnotify) {
    expect_forwarded_to<&NPNetscapeFuncs::geturlnotify>(&vask_np_base::NPN_GetURLNotify);
}

TEST(browser_functions, NPN_PostURLNotify_is_answered_by_entry_posturlnotify) {
    expect_forwarded_to<&NPNetscapeFuncs::posturlnotify>(&vask_np_base::NPN_PostURLNotify);
}

TEST(browser_functions, NPN_GetValue_is_answered_by_entry_getvalue) {
    expect_forwarded_to<&NPNetscapeFuncs::getvalue>(&vask_np_base::NPN_GetValue);
}

TEST(browser_functions, NPN_SetValue_is_answered_by_entry_setvalue) {
    expect_forwarded_to<&NPNetscapeFuncs::setvalue>(&vask_np_base::NPN_SetValue);
}

TEST(browser_functions, NPN_InvalidateRect_is_answered_by_entry_invalidaterect) {
    expect_forwarded_to<&NPNetscapeFuncs::invalidaterect>(&vask_np_base::NPN_InvalidateRect);
}

TEST(browser_functions, NPN_InvalidateRegion_is_answered_by_entry_invalidateregion) {
    expect_forwarded_to<&NPNetscapeFuncs::invalidateregion>(&vask_np_base::NPN_InvalidateRegion);
}

TEST(browser_functions, NPN_ForceRedraw_is_answered_by_entry_forceredraw) {
    expect_forwarded_to<&NPNetscapeFuncs::forceredraw>(&vask_np_base::NPN_ForceRedraw);
}

TEST(browser_functions, NPN_GetStringIdentifier_is_answered_by_entry_getstringidentifier) {
    expect_forwarded_to<&NPNetscapeFuncs::getstringidentifier>(
        &vask_np_base::NPN_GetStringIdentifier);
}

TEST(browser_functions, NPN_GetStringIdentifiers_is_answered_by_entry_getstringidentifiers) {
    expect_forwarded_to<&NPNetscapeFuncs::getstringidentifiers>(
        &vask_np_base::NPN_GetStringIdentifiers);
}

TEST(browser_functions, NPN_GetIntIdentifier_is_answered_by_entry_getintidentifier) {
    expect_forwarded_to<&NPNetscapeFuncs::getintidentifier>(&vask_np_base::NPN_GetIntIdentifier);
}

TEST(browser_functions, NPN_IdentifierIsString_is_answered_by_entry_identifierisstring) {
    expect_forwarded_to<&NPNetscapeFuncs::identifierisstring>(
        &vask_np_base::NPN_IdentifierIsString);
}

TEST(browser_functions, NPN_UTF8FromIdentifier_is_answered_by_entry_utf8fromidentifier) {
    expect_forwarded_to<&NPNetscapeFuncs::utf8fromidentifier>(
        &vask_np_base::NPN_UTF8FromIdentifier);
}

TEST(browser_functions, NPN_IntFromIdentifier_is_answered_by_entry_intfromidentifier) {
    expect_forwarded_to<&NPNetscapeFuncs::intfromidentifier>(&vask_np_base::NPN_IntFromIdentifier);
}

TEST(browser_functions, NPN_CreateObject_is_answered_by_entry_createobject) {
    expect_forwarded_to<&NPNetscapeFuncs::createobject>(&vask_np_base::NPN_CreateObject);
}

TEST(browser_functions, NPN_RetainObject_is_answered_by_entry_retainobject) {
    expect_forwarded_to<&NPNetscapeFuncs::retainobject>(&vask_np_base::NPN_RetainObject);
}

TEST(browser_functions, NPN_ReleaseObject_is_answered_by_entry_releaseobject) {
    expect_forwarded_to<&NPNetscapeFuncs::releaseobject>(&vask_np_base::NPN_ReleaseObject);
}

TEST(browser_functions, NPN_Invoke_is_answered_by_entry_invoke) {
    expect_forwarded_to<&NPNetscapeFuncs::invoke>(&vask_np_base::NPN_Invoke);
}

TEST(browser_functions, NPN_InvokeDefault_is_answered_by_entry_invokeDefault) {
    expect_forwarded_to<&NPNetscapeFuncs::invokeDefault>(&vask_np_base::NPN_InvokeDefault);
}

TEST(browser_functions, NPN_Evaluate_is_answered_by_entry_evaluate) {
    expect_forwarded_to<&NPNetscapeFuncs::evaluate>(&vask_np_base::NPN_Evaluate);
}

TEST(browser_functions, NPN_GetProperty_is_answered_by_entry_getproperty) {
    expect_forwarded_to<&NPNetscapeFuncs::getproperty>(&vask_np_base::NPN_GetProperty);
}

TEST(browser_functions, NPN_SetProperty_is_answered_by_entry_setproperty) {
    expect_forwarded_to<&NPNetscapeFuncs::setproperty>(&vask_np_base::NPN_SetProperty);
}

TEST(browser_functions, NPN_RemoveProperty_is_answered_by_entry_removeproperty) {
    expect_forwarded_to<&NPNetscapeFuncs::removeproperty>(&vask_np_base::NPN_RemoveProperty);
}

TEST(browser_functions, NPN_HasProperty_is_answered_by_entry_hasproperty) {
    expect_forwarded_to<&NPNetscapeFuncs::hasproperty>(&vask_np_base::NPN_HasProperty);
}

TEST(browser_functions, NPN_HasMethod_is_answered_by_entry_hasmethod) {
    expect_forwarded_to<&NPNetscapeFuncs::hasmethod>(&vask_np_base::NPN_HasMethod);
}

TEST(browser_functions, NPN_ReleaseVariantValue_is_answered_by_entry_releasevariantvalue) {
    expect_forwarded_to<&NPNetscapeFuncs::releasevariantvalue>(
        &vask_np_base::NPN_ReleaseVariantValue);
}

TEST(browser_functions, NPN_SetException_is_answered_by_entry_setexception) {
    expect_forwarded_to<&NPNetscapeFuncs::setexception>(&vask_np_base::NPN_SetException);
}

TEST(browser_functions, NPN_PushPopupsEnabledState_is_answered_by_entry_pushpopupsenabledstate) {
    expect_forwarded_to<&NPNetscapeFuncs::pushpopupsenabledstate>(
        &vask_np_base::NPN_PushPopupsEnabledState);
}

TEST(browser_functions, NPN_PopPopupsEnabledState_is_answered_by_entry_poppopupsenabledstate) {
    expect_forwarded_to<&NPNetscapeFuncs::poppopupsenabledstate>(
        &vask_np_base::NPN_PopPopupsEnabledState);
}

TEST(browser_functions, NPN_Enumerate_is_answered_by_entry_enumerate) {
    expect_forwarded_to<&NPNetscapeFuncs::enumerate>(&vask_np_base::NPN_Enumerate);
}

TEST(browser_functions, NPN_PluginThreadAsyncCall_is_answered_by_entry_pluginthreadasynccall) {
    expect_forwarded_to<&NPNetscapeFuncs::pluginthreadasynccall>(
        &vask_np_base::NPN_PluginThreadAsyncCall);
}

TEST(browser_functions, NPN_Construct_is_answered_by_entry_construct) {
    expect_forwarded_to<&NPNetscapeFuncs::construct>(&vask_np_base::NPN_Construct);
}
