#include <cxxabi.h>
#include <gtest/gtest.h>

#include <typeinfo>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "live/OVLiveController.h"
#include "live/OVLiveController2.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "live/OVMulticastLiveController.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrl.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackController.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "support/function.h"

namespace
{

template <class D, class B>
struct Derivation
{
    using Derived = D;
    using Base = B;
};

using Bound = bind_funcobj0<int, OVAudioBackDispatcherMgr>;

template <class T>
class DirectBase : public testing::Test
{
};
using Derivations = testing::Types<
    Derivation<SafePointer<IConnection>, BaseSafePointer>, Derivation<OVRuntimeError, std::exception>,
    Derivation<function_obj<int, int (*)()>, function_obj_base<int>>,
    Derivation<function_obj<int, Bound>, function_obj_base<int>>, Derivation<OrvaneMediaUrl, IMediaUrl>,
    Derivation<OrvaneMediaUrlFactory, IMediaUrlFactory>, Derivation<OVLiveController, IRTSPController>,
    Derivation<OVLiveController2, IRTSPController>, Derivation<OVMulticastLiveController, IRTSPController>,
    Derivation<OVPlaybackController, IRTSPController>,
    Derivation<OVLiveControllerFactory, IRTSPControllerFactory>,
    Derivation<OVLiveControllerFactory2, IRTSPControllerFactory>,
    Derivation<OVMulticastLiveControlerFactory, IRTSPControllerFactory>,
    Derivation<OVPlaybackControllerFactory, IRTSPControllerFactory>>;
TYPED_TEST_SUITE(DirectBase, Derivations);

template <class T>
class NoBase : public testing::Test
{
};
using WithoutBase = testing::Types<BaseSafePointer, function<int>, function_obj_base<int>, IMediaUrl,
                                   IMediaUrlFactory, MediaUrlFactoryMap, IRTSPController,
                                   IRTSPControllerFactory, OVPlayBack, OVAudioBackDispatcherMgr>;
TYPED_TEST_SUITE(NoBase, WithoutBase);

}  // namespace

TYPED_TEST(DirectBase, IsTheOnlyOne)
{
    const auto* const info =
        dynamic_cast<const abi::__si_class_type_info*>(&typeid(typename TypeParam::Derived));
    ASSERT_NE(nullptr, info) << "one public base, at the start of the object";
    EXPECT_EQ(typeid(typename TypeParam::Base), *info->__base_type);
}

TYPED_TEST(NoBase, IsThere)
{
    EXPECT_EQ(typeid(abi::__class_type_info), typeid(typeid(TypeParam)));
}
