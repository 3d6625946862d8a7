// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHARED_INFO_H
#define VASK_SHARED_INFO_H

/**
 * @file
 * @brief The record that all processes of the system share, and the shared-memory objects that it
 *        is made of.
 *
 * Objects and semaphores are created with mode 0666 under the creating process's umask. With the
 * usual umask of 022 only the user who touched the record first, and root, can use it afterwards:
 * every access takes the semaphore, which needs the right to write. Where several users share the
 * record, the first process must run with a umask of 0.
 *
 * @since 2.0
 */

#include <semaphore.h>

#include <cstdint>
#include <string>

#include "vask_export.h"

/**
 * How the monitor is turned.
 *
 * @since 2.0
 */
enum vask_monitor_rotation_type : int {
    VASK_MONITOR_ROTATION_0 = 0,      /**< the screen is split by its height */
    VASK_MONITOR_ROTATION_1 = 1,      /**< the screen is split by its width */
    VASK_MONITOR_ROTATION_2 = 2,      /**< as 0, the other way round */
    VASK_MONITOR_ROTATION_3 = 3,      /**< as 1, the other way round */
    VASK_MONITOR_ROTATION_ERROR = 4,  /**< the record is not available */
    VASK_MONITOR_ROTATION_NOT_SET = 5 /**< nobody has set it yet */
};

/**
 * Known processors.
 *
 * @since 2.0
 */
enum vask_cpu_type : int {
    VASK_CPU_NOT_CHECKED = 0, /**< nobody has asked yet */
    VASK_CPU_UNKNOWN = 1,     /**< none of these */
    VASK_CPU_ERROR = 2,       /**< it could not be told */
    VASK_CPU_ATOM_Z = 3,      /**< Atom Z */
    VASK_CPU_ATOM_N = 4,      /**< never detected */
    VASK_CPU_CORE_2_DUO = 5   /**< Core 2 Duo */
};

/**
 * Known graphics devices.
 *
 * @since 2.0
 */
enum vask_gpu_type : int {
    VASK_GPU_NOT_CHECKED = 0, /**< nobody has asked yet */
    VASK_GPU_UNKNOWN = 1,     /**< none of these */
    VASK_GPU_ERROR = 2,       /**< it could not be told */
    VASK_GPU_GMA_500 = 3,     /**< GMA 500 */
    VASK_GPU_GMA_950 = 4,     /**< never detected */
    VASK_GPU_GMA_4500MHD = 5, /**< GMA 4500MHD */
    VASK_GPU_NVIDIA = 6       /**< has no text of its own */
};

/**
 * The shared record, as it lies in the shared object. Read and written under its semaphore.
 *
 * @since 2.0
 */
struct vk_shared_info {
    std::int32_t monitor_rotation; /**< a ::vask_monitor_rotation_type */
    std::int32_t cpu_type;         /**< a ::vask_cpu_type */
    std::int32_t gpu_type;         /**< a ::vask_gpu_type */
    std::uint8_t pseudo_portrait;  /**< 0 or 1 */
    std::uint8_t reserved[2051];   /**< zero */
};

/**
 * One shared-memory object of this process and the semaphore that guards it.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_shm_context {
public:
    /**
     * @param name  the object's name, without prefix; copied
     * @param size  its size, in bytes
     */
    vask_shm_context(const char* name, unsigned long size);

    /** Unmaps and closes nothing. */
    virtual ~vask_shm_context();

    /** @return the object's name, without prefix */
    std::string get_name() const;

    /** @return the name of the memory object */
    std::string get_shm_name() const;

    /** @return the name of the semaphore */
    std::string get_sem_name() const;

    /** @return start of the mapping, or null */
    void* get_addr() const { return m_addr; }

    /** @param addr  start of the mapping, not owned; null for none */
    void set_addr(void* addr) { m_addr = addr; }

    /** @return whether this process created the object */
    bool get_created() const { return m_created; }

    /** @param created  whether this process created the object */
    void set_created(bool created) { m_created = created; }

    /** @return the size, in bytes */
    std::uint64_t get_size() const { return m_size; }

    /** @param size  in bytes */
    void set_size(std::uint64_t size) { m_size = size; }

    /** @return the upper 32 bits of the size */
    std::uint32_t get_size_msb() const;

    /** @return the lower 32 bits of the size */
    std::uint32_t get_size_lsb() const;

    /** @return this process's handle of the semaphore, or null */
    sem_t* get_sem() const { return m_sem; }

    /** @param sem  this process's handle of the semaphore, not owned; null for none */
    void set_sem(sem_t* sem) { m_sem = sem; }

private:
    // Where m_size bytes of the object are mapped, or null. map_shm() sets it together with m_sem,
    // and unmap_shm() clears both.
    void* m_addr;

    // This process's handle, or null.
    sem_t* m_sem;

    // Never changes.
    std::string m_name;

    // In bytes. What is mapped has it until it is unmapped.
    std::uint64_t m_size;

    // Whether map_shm() has made the object.
    bool m_created;
};

/**
 * @brief This process's view of the system-wide record.
 *
 * There is one object per process, vask_object::m_shared_info, and vask_object has static members
 * that forward to it. The record is created by the first access of any process and outlives them
 * all.
 *
 * Every access holds the record's semaphore for a few instructions. A process that makes the
 * record, sets something, keeps what was detected or destroys the record blocks signals meanwhile,
 * all but SIGKILL, SIGSTOP and those of a fault. One that only reads makes no system call and
 * blocks none. A process that is ended in between leaves the semaphore taken, and every later
 * access waits for ever: nobody can tell such a holder from a slow one. Only removing the semaphore
 * and the memory object helps. A process that waits for the semaphore sees a signal within 0.1
 * seconds.
 *
 * Failures are logged at ERR under the name "vask", as "<vask_shared_info:LINE> ...", those of a
 * semaphore as "<vask_object_sem:LINE> ...". Within a process the first access has to come from one
 * thread.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_shared_info {
public:
    vask_shared_info();

    vask_shared_info(const vask_shared_info&) = delete;
    vask_shared_info& operator=(const vask_shared_info&) = delete;

    /** @name Shared-memory objects */
    ///@{

    /**
     * Maps a shared-memory object and takes its semaphore. The caller fills the memory in, if
     * vask_shm_context::get_created() says that it is new, and then gives the semaphore back with
     * vask_object::post_named_sem(). Blocks while another process holds the semaphore. It does not
     * block signals while it waits or when it returns: a caller that must not leave the semaphore
     * taken blocks them before the call. When the semaphore is removed during the wait, it begins
     * again with the one that has the name then.
     *
     * @param name    the object's name, without prefix
     * @param size    its size, in bytes; more than 0 for a new one
     * @param create  whether an object that does not exist is created
     * @return a context for unmap_shm(); null on failure: without a line where there is no
     *         semaphore and @p create is false, otherwise after one of "Failed to create
     *         vask_shm_context instance", "Size must be larger than zero when create flag is
     *         true.", "Failed to call shm_open: ERRNO @ map_shared_info", "Failed to call
     *         ftruncate: ERRNO @ map_shared_info" (also for a full /dev/shm), "Failed to mmap:
     *         REASON @ map_shared_info" (also for an object that is shorter than @p size), or a
     *         line of vask_object::create_named_sem() or vask_object::vask_sem_wait(). What a
     *         failing call has created is removed again, but for the semaphore
     */
    static vask_shm_context* map_shm(const char* name, unsigned long size, bool create);

    /**
     * The part of map_shm() that asks the system.
     *
     * @param ctx     receives address, semaphore and whether the object is new; null is logged as
     *                "context is NULL" at BUG
     * @param create  as in map_shm()
     * @return true with the semaphore held; false, with the semaphore as it was, after a line as in
     *         map_shm()
     */
    static bool map_shm_platform(vask_shm_context* ctx, bool create);

    /**
     * Unmaps an object, closes its semaphore and deletes the context.
     *
     * @param ctx  null is logged as "ctx is NULL" at BUG
     * @return false, with the context still alive, after "Failed to unmap map_shared_info: REASON"
     */
    static bool unmap_shm(vask_shm_context* ctx);

    /**
     * Removes a memory object from the system; its semaphore stays. Processes that have it mapped
     * keep it. Remove the semaphore as well, under the semaphore: vask_object::destroy_sem().
     *
     * @param name  the object's name, without prefix
     * @return false after "Failed to call shm_unlink(OBJECT): REASON"
     */
    bool destroy_shm(const char* name);

    ///@}
    /** @name The record */
    ///@{

    /**
     * Maps the record, once; later calls cost nothing.
     *
     * @param create  whether a record that does not exist is created
     * @return the record, or null as in map_shm()
     */
    vk_shared_info* map_shared_info(bool create);

    /**
     * Unmaps the record; the next access maps it again.
     *
     * @param destroy  whether record and semaphore are removed from the system as well. That waits
     *                 a second for the semaphore, and then goes on without it.
     *                 What cannot be removed is logged as "Failed to call shm_unlink(NAME): REASON"
     * @return true, also after "Failed to call unmap_shm()"
     */
    bool unmap_shared_info(bool destroy);

    /** Fills a new record in. @param rec  not null */
    void init_shared_info(vk_shared_info* rec);

    /** Takes the record's semaphore; blocks. Not recursive: a process that holds it and calls this,
     *  a getter or a setter waits for itself. Signals are not blocked: block those that end the
     *  process.
     *  @return false after "m_shared_info_ctx == NULL" or "sem == NULL" when it is not mapped, and
     *          after a line of vask_object::vask_sem_wait() or vask_object::vask_sem_post() */
    bool lock_shared_info();

    /** Gives the record's semaphore back.
     *  @return as lock_shared_info() */
    bool unlock_shared_info();

    /** @param rotation  stored as it is
     *  @return false when the record is not available */
    bool set_monitor_rotation(vask_monitor_rotation_type rotation);

    /** @return what was set last, ::VASK_MONITOR_ROTATION_NOT_SET before that, or
     *          ::VASK_MONITOR_ROTATION_ERROR when the record is not available */
    vask_monitor_rotation_type get_monitor_rotation();

    /**
     * Sets the flag. Does nothing when the record is not available ("Failed to call
     * vask_sem_wait()" when it cannot be locked).
     *
     * @param is_pseudo_portrait  the flag
     */
    void set_pseudo_portrait_flag(bool is_pseudo_portrait);

    /** @return what was set last; false before that, and when the record is not available */
    bool get_pseudo_portrait_flag();

    ///@}
    /** @name Hardware */
    ///@{

    /**
     * Tells the processor. Detected once for the whole system and kept in the record.
     *
     * @param force  detects it again
     * @return the type; ::VASK_CPU_ERROR when the record is not available or the processor cannot
     *         be read, which is kept like any other result
     */
    vask_cpu_type get_vask_cpu_type(bool force);

    /**
     * Tells the graphics device. Detected once for the whole system and kept in the record.
     *
     * @param force  detects it again
     * @return the type; ::VASK_GPU_ERROR when the record is not available or the device cannot be
     *         read, which is kept like any other result
     */
    vask_gpu_type get_vask_gpu_type(bool force);

    /** Detects the processor without asking the record: the first "model name" of /proc/cpuinfo
     *  decides. Of a line only the first 1000 characters count.
     *  @return ::VASK_CPU_ERROR after "Failed to open: PATH" */
    vask_cpu_type get_vask_cpu_type_check();

    /** Detects the graphics device without asking the record: the first known vendor and device in
     *  /proc/bus/pci/devices decides. Of a line only the first 1000 characters count.
     *  @return ::VASK_GPU_ERROR after "Failed to open: PATH" */
    vask_gpu_type get_vask_gpu_type_check();

    /**
     * @param type  a processor
     * @return a constant text; "Unknown" for a value that has none
     */
    static const char* get_vask_cpu_type_str(vask_cpu_type type);

    /**
     * @param type  a graphics device
     * @return a constant text; "Unknown" for a value that has none
     */
    static const char* get_vask_gpu_type_str(vask_gpu_type type);

    ///@}

protected:
    /** The record's context, owned; null while it is not mapped. */
    vask_shm_context* m_shared_info_ctx;
};

/**
 * The name of the record's shared-memory object, without prefix.
 *
 * @since 2.0
 */
VASK_EXPORT extern const char* const shared_info_name;

#endif
