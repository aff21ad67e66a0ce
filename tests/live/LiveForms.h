#pragma once

#include <string>
#include <vector>

#include "live/OVLiveController.h"
#include "live/OVLiveController2.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "live/OVMulticastLiveController.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/live/ScriptedCodec.h"

// The live controllers with what sets them apart, for tests of what they have in common. Each is made for one
// URL and knows by which codec; `method` is the host call that a method of session "session" becomes.

struct FirstForm
{
    using Factory = OVLiveControllerFactory;
    using Controller = OVLiveController;
    static constexpr const char* factoryName = "OVLiveControllerFactory";
    static constexpr const char* controllerName = "OVLiveController";
    static constexpr const char* parseOperation = "parseMediaUrl";
    static constexpr const char* rendered = "canonical parsed 5 6";
    static constexpr const char* renderedUnparsed = "canonical  0 0";
    static constexpr int mutexInits = 0;

    static constexpr const char* dispatcher = "RTPStreamDispatcherMgr";
    static constexpr const char* url = "rtsp://192.0.2.10/orv/live/12/0";
    static constexpr const char* canonicalUrl = "orv/live/12/0";

    static SafePointer<IMediaUrlFactory> codecs()
    {
        return SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory);
    }

    static std::string method(const std::string& operation, const std::string& trackId)
    {
        return "RTPStreamDispatcherMgr::" + operation + "(12/0, session, " + trackId + ")";
    }

    /// The host calls by which SETUP finds the packet size.
    static std::vector<std::string> packetSizing(int)
    {
        return {};
    }
};

struct SecondForm
{
    using Factory = OVLiveControllerFactory2;
    using Controller = OVLiveController2;
    static constexpr const char* factoryName = "OVLiveControllerFactory2";
    static constexpr const char* controllerName = "OVLiveController2";
    static constexpr const char* parseOperation = "parseMediaUrl";
    static constexpr const char* rendered = "canonical parsed 5 6";
    static constexpr const char* renderedUnparsed = "canonical  0 0";
    static constexpr int mutexInits = 0;

    static constexpr const char* dispatcher = "LiveDispatcherMgr";
    static constexpr const char* url = FirstForm::url;
    static constexpr const char* canonicalUrl = FirstForm::canonicalUrl;

    static SafePointer<IMediaUrlFactory> codecs()
    {
        return FirstForm::codecs();
    }

    static std::string method(const std::string& operation, const std::string& trackId)
    {
        return "LiveDispatcherMgr::" + operation + "(session, " + trackId + ")";
    }

    static std::vector<std::string> packetSizing(int kind)
    {
        return kind == IConnection::udpUnicast ? std::vector<std::string>{"LiveDispatcherMgr::getMTUParam()"}
                                               : std::vector<std::string>{};
    }
};

/// The device's own codec finds nothing in a multicast URL, so this form uses another codec.
struct MulticastForm
{
    using Factory = OVMulticastLiveControlerFactory;
    using Controller = OVMulticastLiveController;
    static constexpr const char* factoryName = "OVMulticastLiveControlerFactory";
    static constexpr const char* controllerName = "OVMulticastLiveController";
    static constexpr const char* parseOperation = "parseMulticastMediaUrl";
    static constexpr const char* rendered = "multicast parsed 5 6";
    static constexpr const char* renderedUnparsed = "multicast  0 0";
    static constexpr int mutexInits = 1;

    static constexpr const char* url = "any";
    static constexpr const char* canonicalUrl = "multicast parsed 5 6";

    static SafePointer<IMediaUrlFactory> codecs()
    {
        return SafePointer<IMediaUrlFactory>(new ScriptedCodecFactory);
    }
};
