#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/base/ref_count.h"

/// A device's table of count records.
class OV_HOST_API RefCountManager
{
public:
    static RefCountManager* getInstance();
    ref_count* retrieveRefCount(void* object, const char* typeName);
    void returnbackRefCount(ref_count* record, const char* typeName);
};
