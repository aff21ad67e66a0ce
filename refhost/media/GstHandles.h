#pragma once
// Tested by tests/refhost/media/TrackDescription_test.cpp.

#include <gst/gst.h>

#include <memory>

namespace refhost
{

/// Releases a reference to a GStreamer object.
struct GstObjectUnref
{
    void operator()(void* object) const
    {
        gst_object_unref(object);
    }
};

/// Releases a reference to a GStreamer mini object: caps, buffer, sample, event, message.
struct GstMiniObjectUnref
{
    template <class T>
    void operator()(T* value) const
    {
        gst_mini_object_unref(GST_MINI_OBJECT_CAST(value));
    }
};

template <class T>
using GstObjectPtr = std::unique_ptr<T, GstObjectUnref>;

template <class T>
using GstValuePtr = std::unique_ptr<T, GstMiniObjectUnref>;

}  // namespace refhost
