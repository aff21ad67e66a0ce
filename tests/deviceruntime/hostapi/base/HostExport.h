#pragma once

/// What the library binds to.
#define OV_HOST_API __attribute__((visibility("default")))

/// What nobody binds to: reached by a table of virtual operations, or used by the runtime alone.
#define DEVICE_OWN __attribute__((visibility("hidden")))
