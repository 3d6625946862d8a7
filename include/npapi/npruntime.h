#ifndef NPAPI_NPRUNTIME_H
#define NPAPI_NPRUNTIME_H

/**
 * @file
 * @brief The scripting side of the plug-in interface: values, identifiers, and objects that page
 * and plug-in hand to each other.
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
    const NPUTF8* UTF8Characters;
    uint32_t UTF8Length; /**< in bytes */
} NPString;

/** A name or a number that a member of an object is known by. Identifiers of the same name are
 *  equal, and last as long as the browser. */
typedef void* NPIdentifier;

typedef enum NP_ENUM_BASE {
    NPVariantType_Void,
    NPVariantType_Null,
    NPVariantType_Bool,
    NPVariantType_Int32,
    NPVariantType_Double,
    NPVariantType_String,
    NPVariantType_Object
} NPVariantType;

typedef struct NPObject NPObject;
typedef struct NPClass NPClass;

/**
 * A value of any type that a script has.
 *
 * A text or object that a call returns in a variant is the receiver's, who ends it with
 * NPN_ReleaseVariantValue; one that is given as an argument stays the caller's.
 */
typedef struct _NPVariant {
    NPVariantType type;
    union {
        bool boolValue;
        int32_t intValue;
        double doubleValue;
        NPString stringValue;
        NPObject* objectValue;
    } value;
} NPVariant;

/** What every object of the runtime begins with. */
struct NPObject {
    NPClass* _class;
    uint32_t referenceCount;
};

/** @name What the browser calls on an object, through the object's class */
/**@{*/
typedef NPObject* (*NPAllocateFunctionPtr)(NPP npp, NPClass* its_class);
typedef void (*NPDeallocateFunctionPtr)(NPObject* object);
typedef void (*NPInvalidateFunctionPtr)(NPObject* object);
typedef bool (*NPHasMethodFunctionPtr)(NPObject* object, NPIdentifier name);
typedef bool (*NPInvokeFunctionPtr)(NPObject* object, NPIdentifier name, const NPVariant* args,
                                    uint32_t arg_count, NPVariant* result);
typedef bool (*NPInvokeDefaultFunctionPtr)(NPObject* object, const NPVariant* args,
                                           uint32_t arg_count, NPVariant* result);
typedef bool (*NPHasPropertyFunctionPtr)(NPObject* object, NPIdentifier name);
typedef bool (*NPGetPropertyFunctionPtr)(NPObject* object, NPIdentifier name, NPVariant* result);
typedef bool (*NPSetPropertyFunctionPtr)(NPObject* object, NPIdentifier name,
                                         const NPVariant* value);
typedef bool (*NPRemovePropertyFunctionPtr)(NPObject* object, NPIdentifier name);
typedef bool (*NPEnumerationFunctionPtr)(NPObject* object, NPIdentifier** names, uint32_t* count);
typedef bool (*NPConstructFunctionPtr)(NPObject* object, const NPVariant* args, uint32_t arg_count,
                                       NPVariant* result);
/**@}*/

/** The behaviour of objects. A null entry stands for the browser's own way, or for a failure. */
struct NPClass {
    uint32_t structVersion; /**< up to which of the entries the record goes */
    NPAllocateFunctionPtr allocate;
    NPDeallocateFunctionPtr deallocate;
    NPInvalidateFunctionPtr invalidate;
    NPHasMethodFunctionPtr hasMethod;
    NPInvokeFunctionPtr invoke;
    NPInvokeDefaultFunctionPtr invokeDefault;
    NPHasPropertyFunctionPtr hasProperty;
    NPGetPropertyFunctionPtr getProperty;
    NPSetPropertyFunctionPtr setProperty;
    NPRemovePropertyFunctionPtr removeProperty;
    NPEnumerationFunctionPtr enumerate; /**< from NP_CLASS_STRUCT_VERSION_ENUM on */
    NPConstructFunctionPtr construct;   /**< from NP_CLASS_STRUCT_VERSION_CTOR on */
};

#define NP_CLASS_STRUCT_VERSION_ENUM 2
#define NP_CLASS_STRUCT_VERSION_CTOR 3
#define NP_CLASS_STRUCT_VERSION NP_CLASS_STRUCT_VERSION_CTOR
#define NP_CLASS_STRUCT_VERSION_HAS_ENUM(npclass) \
    ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_ENUM)
#define NP_CLASS_STRUCT_VERSION_HAS_CTOR(npclass) \
    ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_CTOR)

/** @name What is in a variant
 *  The type is not tested when the value is taken out.
 */
/**@{*/
#define NPVARIANT_IS_VOID(v) ((v).type == NPVariantType_Void)
#define NPVARIANT_IS_NULL(v) ((v).type == NPVariantType_Null)
#define NPVARIANT_IS_BOOLEAN(v) ((v).type == NPVariantType_Bool)
#define NPVARIANT_IS_INT32(v) ((v).type == NPVariantType_Int32)
#define NPVARIANT_IS_DOUBLE(v) ((v).type == NPVariantType_Double)
#define NPVARIANT_IS_STRING(v) ((v).type == NPVariantType_String)
#define NPVARIANT_IS_OBJECT(v) ((v).type == NPVariantType_Object)

#define NPVARIANT_TO_BOOLEAN(v) ((v).value.boolValue)
#define NPVARIANT_TO_INT32(v) ((v).value.intValue)
#define NPVARIANT_TO_DOUBLE(v) ((v).value.doubleValue)
#define NPVARIANT_TO_STRING(v) ((v).value.stringValue)
#define NPVARIANT_TO_OBJECT(v) ((v).value.objectValue)
/**@}*/

/** @name Putting a value into a variant
 *  Neither is the earlier value released, nor is a text copied or an object retained.
 */
/**@{*/
#define VOID_TO_NPVARIANT(v)           \
    do {                               \
        (v).type = NPVariantType_Void; \
        (v).value.objectValue = 0;     \
    } while (0)

#define NULL_TO_NPVARIANT(v)           \
    do {                               \
        (v).type = NPVariantType_Null; \
        (v).value.objectValue = 0;     \
    } while (0)

#define BOOLEAN_TO_NPVARIANT(boolean, v)   \
    do {                                   \
        (v).type = NPVariantType_Bool;     \
        (v).value.boolValue = !!(boolean); \
    } while (0)

#define INT32_TO_NPVARIANT(number, v)   \
    do {                                \
        (v).type = NPVariantType_Int32; \
        (v).value.intValue = (number);  \
    } while (0)

#define DOUBLE_TO_NPVARIANT(number, v)    \
    do {                                  \
        (v).type = NPVariantType_Double;  \
        (v).value.doubleValue = (number); \
    } while (0)

#define STRINGN_TO_NPVARIANT(text, length, v)                  \
    do {                                                       \
        (v).type = NPVariantType_String;                       \
        (v).value.stringValue.UTF8Characters = (text);         \
        (v).value.stringValue.UTF8Length = (uint32_t)(length); \
    } while (0)

/** @p text is terminated, and evaluated once. */
#define STRINGZ_TO_NPVARIANT(text, v)                                              \
    do {                                                                           \
        const NPUTF8* np_terminated_text = (text);                                 \
        STRINGN_TO_NPVARIANT(np_terminated_text, strlen(np_terminated_text), (v)); \
    } while (0)

#define OBJECT_TO_NPVARIANT(object, v)    \
    do {                                  \
        (v).type = NPVariantType_Object;  \
        (v).value.objectValue = (object); \
    } while (0)
/**@}*/

/** @name What a browser does for a plug-in */
/**@{*/
/** Ends what the variant holds and makes it void. */
void NPN_ReleaseVariantValue(NPVariant* variant);

NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name);
void NPN_GetStringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers);
NPIdentifier NPN_GetIntIdentifier(int32_t number);
bool NPN_IdentifierIsString(NPIdentifier identifier);
/** @return the name, to be freed with NPN_MemFree; null for a number */
NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier);
int32_t NPN_IntFromIdentifier(NPIdentifier identifier);

/** @return a new object with one reference, which is the caller's */
NPObject* NPN_CreateObject(NPP npp, NPClass* its_class);
NPObject* NPN_RetainObject(NPObject* object);
void NPN_ReleaseObject(NPObject* object);

bool NPN_Invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                uint32_t arg_count, NPVariant* result);
bool NPN_InvokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                       NPVariant* result);
bool NPN_Evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result);
bool NPN_GetProperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result);
bool NPN_SetProperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value);
bool NPN_RemoveProperty(NPP npp, NPObject* object, NPIdentifier name);
bool NPN_HasProperty(NPP npp, NPObject* object, NPIdentifier name);
bool NPN_HasMethod(NPP npp, NPObject* object, NPIdentifier name);
/** @param names  receives an array to be freed with NPN_MemFree */
bool NPN_Enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count);
bool NPN_Construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                   NPVariant* result);
void NPN_SetException(NPObject* object, const NPUTF8* message);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
