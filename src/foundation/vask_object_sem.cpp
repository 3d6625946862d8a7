#include "vask_object.h"

void vask_object::shm_unlock() {
    if (shm_lock_sem == nullptr) {
        vask_p(VASK_P_WARN, "No shm lock held.\n");
        return;
    }
    sem_post(shm_lock_sem);
    sem_close(shm_lock_sem);
    shm_lock_sem = nullptr;
}
