// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_FACTORY_H
#define DEMO_FACTORY_H

#include <vask_np_factory.h>

/** @brief Makes the demonstration's instances, one of them ahead of time. */
class demo_factory : public vask_np_factory {
public:
    demo_factory();

    /** Deletes the instances that are ready, and so ends their children. */
    ~demo_factory() override;

    vask_np_instance* create_instance() override;

    /** Stops the instance's work, which the browser's references to it may keep alive. */
    NPError destroy_instance(NPP npp, NPSavedData** save) override;

    /** Begins to keep an instance ready. Not again when the browser comes back after NP_Shutdown:
     *  what is ready stays ready. */
    NPError _NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) override;
};

#endif
