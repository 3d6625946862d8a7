/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

#ifndef NPAPI_NPRUNTIME_H
#define NPAPI_NPRUNTIME_H

/**
 * @file
 * @brief The scripting side of the plug-in interface: values, identifiers, and objects that page
 *        and plug-in hand to each other.
 */

#include <string.h>

#include "npapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Text in UTF-8. */
typedef char NPUTF8;

/** Counted text, which need not be terminated. */
typedef struct _NPString {
    const NPUTF8* UTF8Characters; /**< the text */
    uint32_t UTF8Length;          /**< in bytes */
} NPString;

/** A name or a number that a member of an object is known by. Identifiers of the same name are
 *  equal, and last as long as the browser. */
typedef void* NPIdentifier;

/** The type of a value. */
typedef enum NP_ENUM_BASE {
    NPVariantType_Void,
    NPVariantType_Null,
    NPVariantType_Bool,
    NPVariantType_Int32,
    NPVariantType_Double,
    NPVariantType_String,
    NPVariantType_Object
} NPVariantType;

typedef struct NPObject NPObject; /**< an object */
typedef struct NPClass NPClass;   /**< its class */

/**
 * A value of any type that a script has.
 *
 * A text or object that a call returns in a variant is the receiver's, who ends it with
 * NPN_ReleaseVariantValue; one that is given as an argument stays the caller's.
 */
typedef struct _NPVariant {
    NPVariantType type; /**< which member of the union holds */
    union {
        bool boolValue;        /**< for NPVariantType_Bool */
        int32_t intValue;      /**< for NPVariantType_Int32 */
        double doubleValue;    /**< for NPVariantType_Double */
        NPString stringValue;  /**< for NPVariantType_String */
        NPObject* objectValue; /**< for NPVariantType_Object */
    } value;                   /**< the value */
} NPVariant;

/** What every object of the runtime begins with. */
struct NPObject {
    NPClass* _class;         /**< set by NPN_CreateObject */
    uint32_t referenceCount; /**< the browser's to count */
};

/** @name What the browser calls on an object, through the object's class */
/**@{*/
/** See NPClass. */
typedef NPObject* (*NPAllocateFunctionPtr)(NPP npp, NPClass* its_class);
/** See NPClass. */
typedef void (*NPDeallocateFunctionPtr)(NPObject* object);
/** See NPClass. */
typedef void (*NPInvalidateFunctionPtr)(NPObject* object);
/** See NPClass. */
typedef bool (*NPHasMethodFunctionPtr)(NPObject* object, NPIdentifier name);
/** See NPClass. */
typedef bool (*NPInvokeFunctionPtr)(NPObject* object, NPIdentifier name, const NPVariant* args,
                                    uint32_t arg_count, NPVariant* result);
/** See NPClass. */
typedef bool (*NPInvokeDefaultFunctionPtr)(NPObject* object, const NPVariant* args,
                                           uint32_t arg_count, NPVariant* result);
/** See NPClass. */
typedef bool (*NPHasPropertyFunctionPtr)(NPObject* object, NPIdentifier name);
/** See NPClass. */
typedef bool (*NPGetPropertyFunctionPtr)(NPObject* object, NPIdentifier name, NPVariant* result);
/** See NPClass. */
typedef bool (*NPSetPropertyFunctionPtr)(NPObject* object, NPIdentifier name,
                                         const NPVariant* value);
/** See NPClass. */
typedef bool (*NPRemovePropertyFunctionPtr)(NPObject* object, NPIdentifier name);
/** See NPClass. */
typedef bool (*NPEnumerationFunctionPtr)(NPObject* object, NPIdentifier** names, uint32_t* count);
/** See NPClass. */
typedef bool (*NPConstructFunctionPtr)(NPObject* object, const NPVariant* args, uint32_t arg_count,
                                       NPVariant* result);
/**@}*/

/** The behaviour of objects. A null entry stands for the browser's own way, or for a failure. */
struct NPClass {
    uint32_t structVersion;                   /**< up to which of the entries the record goes */
    NPAllocateFunctionPtr allocate;           /**< makes an object of this class */
    NPDeallocateFunctionPtr deallocate;       /**< ends an object that has no reference any more */
    NPInvalidateFunctionPtr invalidate;       /**< the browser has no more use for the object */
    NPHasMethodFunctionPtr hasMethod;         /**< whether there is such a method */
    NPInvokeFunctionPtr invoke;               /**< calls a method */
    NPInvokeDefaultFunctionPtr invokeDefault; /**< calls the object itself */
    NPHasPropertyFunctionPtr hasProperty;     /**< whether there is such a property */
    NPGetPropertyFunctionPtr getProperty;     /**< reads a property */
    NPSetPropertyFunctionPtr setProperty;     /**< writes a property */
    NPRemovePropertyFunctionPtr removeProperty; /**< removes a property */
    NPEnumerationFunctionPtr enumerate;         /**< from NP_CLASS_STRUCT_VERSION_ENUM on */
    NPConstructFunctionPtr construct;           /**< from NP_CLASS_STRUCT_VERSION_CTOR on */
};

#define NP_CLASS_STRUCT_VERSION_ENUM 2                       /**< with enumerate */
#define NP_CLASS_STRUCT_VERSION_CTOR 3                       /**< with construct */
#define NP_CLASS_STRUCT_VERSION NP_CLASS_STRUCT_VERSION_CTOR /**< of what is declared here */
/** Whether a class has enumerate. */
#define NP_CLASS_STRUCT_VERSION_HAS_ENUM(npclass) \
    ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_ENUM)
/** Whether a class has construct. */
#define NP_CLASS_STRUCT_VERSION_HAS_CTOR(npclass) \
    ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_CTOR)

/** @name What is in a variant
 *  The type is not tested when the value is taken out.
 */
/**@{*/
#define NPVARIANT_IS_VOID(v) ((v).type == NPVariantType_Void)     /**< whether it is this */
#define NPVARIANT_IS_NULL(v) ((v).type == NPVariantType_Null)     /**< whether it is this */
#define NPVARIANT_IS_BOOLEAN(v) ((v).type == NPVariantType_Bool)  /**< whether it is this */
#define NPVARIANT_IS_INT32(v) ((v).type == NPVariantType_Int32)   /**< whether it is this */
#define NPVARIANT_IS_DOUBLE(v) ((v).type == NPVariantType_Double) /**< whether it is this */
#define NPVARIANT_IS_STRING(v) ((v).type == NPVariantType_String) /**< whether it is this */
#define NPVARIANT_IS_OBJECT(v) ((v).type == NPVariantType_Object) /**< whether it is this */

#define NPVARIANT_TO_BOOLEAN(v) ((v).value.boolValue)  /**< its value */
#define NPVARIANT_TO_INT32(v) ((v).value.intValue)     /**< its value */
#define NPVARIANT_TO_DOUBLE(v) ((v).value.doubleValue) /**< its value */
#define NPVARIANT_TO_STRING(v) ((v).value.stringValue) /**< its value */
#define NPVARIANT_TO_OBJECT(v) ((v).value.objectValue) /**< its value */
/**@}*/

/** @name Putting a value into a variant
 *  Neither is the earlier value released, nor is a text copied or an object retained.
 */
/**@{*/
/** Makes a variant void. */
#define VOID_TO_NPVARIANT(v)           \
    do {                               \
        (v).type = NPVariantType_Void; \
        (v).value.objectValue = 0;     \
    } while (0)

/** Makes a variant null. */
#define NULL_TO_NPVARIANT(v)           \
    do {                               \
        (v).type = NPVariantType_Null; \
        (v).value.objectValue = 0;     \
    } while (0)

/** Puts a truth value into a variant. */
#define BOOLEAN_TO_NPVARIANT(boolean, v)   \
    do {                                   \
        (v).type = NPVariantType_Bool;     \
        (v).value.boolValue = !!(boolean); \
    } while (0)

/** Puts a number into a variant. */
#define INT32_TO_NPVARIANT(number, v)   \
    do {                                \
        (v).type = NPVariantType_Int32; \
        (v).value.intValue = (number);  \
    } while (0)

/** Puts a number into a variant. */
#define DOUBLE_TO_NPVARIANT(number, v)    \
    do {                                  \
        (v).type = NPVariantType_Double;  \
        (v).value.doubleValue = (number); \
    } while (0)

/** Puts a counted text into a variant. */
#define STRINGN_TO_NPVARIANT(text, length, v)                  \
    do {                                                       \
        (v).type = NPVariantType_String;                       \
        (v).value.stringValue.UTF8Characters = (text);         \
        (v).value.stringValue.UTF8Length = (uint32_t)(length); \
    } while (0)

/** Puts a terminated text, which is evaluated once, into a variant. */
#define STRINGZ_TO_NPVARIANT(text, v)                                              \
    do {                                                                           \
        const NPUTF8* np_terminated_text = (text);                                 \
        STRINGN_TO_NPVARIANT(np_terminated_text, strlen(np_terminated_text), (v)); \
    } while (0)

/** Puts an object into a variant. */
#define OBJECT_TO_NPVARIANT(object, v)    \
    do {                                  \
        (v).type = NPVariantType_Object;  \
        (v).value.objectValue = (object); \
    } while (0)
/**@}*/

/** @name What a browser does for a plug-in */
/**@{*/

/** @copydoc vask_np_base::NPN_ReleaseVariantValue() */
void NPN_ReleaseVariantValue(NPVariant* variant);

/** @copydoc vask_np_base::NPN_GetStringIdentifier() */
NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name);

/** @copydoc vask_np_base::NPN_GetStringIdentifiers() */
void NPN_GetStringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers);

/** @copydoc vask_np_base::NPN_GetIntIdentifier() */
NPIdentifier NPN_GetIntIdentifier(int32_t number);

/** @copydoc vask_np_base::NPN_IdentifierIsString() */
bool NPN_IdentifierIsString(NPIdentifier identifier);

/** @copydoc vask_np_base::NPN_UTF8FromIdentifier() */
NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier);

/** @copydoc vask_np_base::NPN_IntFromIdentifier() */
int32_t NPN_IntFromIdentifier(NPIdentifier identifier);

/** @copydoc vask_np_base::NPN_CreateObject() */
NPObject* NPN_CreateObject(NPP npp, NPClass* its_class);

/** @copydoc vask_np_base::NPN_RetainObject() */
NPObject* NPN_RetainObject(NPObject* object);

/** @copydoc vask_np_base::NPN_ReleaseObject() */
void NPN_ReleaseObject(NPObject* object);

/** @copydoc vask_np_base::NPN_Invoke() */
bool NPN_Invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                uint32_t arg_count, NPVariant* result);

/** @copydoc vask_np_base::NPN_InvokeDefault() */
bool NPN_InvokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                       NPVariant* result);

/** @copydoc vask_np_base::NPN_Evaluate() */
bool NPN_Evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result);

/** @copydoc vask_np_base::NPN_GetProperty() */
bool NPN_GetProperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result);

/** @copydoc vask_np_base::NPN_SetProperty() */
bool NPN_SetProperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value);

/** @copydoc vask_np_base::NPN_RemoveProperty() */
bool NPN_RemoveProperty(NPP npp, NPObject* object, NPIdentifier name);

/** @copydoc vask_np_base::NPN_HasProperty() */
bool NPN_HasProperty(NPP npp, NPObject* object, NPIdentifier name);

/** @copydoc vask_np_base::NPN_HasMethod() */
bool NPN_HasMethod(NPP npp, NPObject* object, NPIdentifier name);

/** @copydoc vask_np_base::NPN_Enumerate() */
bool NPN_Enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count);

/** @copydoc vask_np_base::NPN_Construct() */
bool NPN_Construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                   NPVariant* result);

/** @copydoc vask_np_base::NPN_SetException() */
void NPN_SetException(NPObject* object, const NPUTF8* message);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
