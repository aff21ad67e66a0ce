#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/threads/OVThread.h"
#include "support/function.h"

/// A device's thread.
class OV_HOST_API GThread : public OVThread
{
public:
    GThread(function<int> run, const std::string& name, function<int> before, function<int> after);
    DEVICE_OWN ~GThread() noexcept(false) override;
    int start();
    void stop();
    static int emptyFun();

private:
    void* body_;
};
