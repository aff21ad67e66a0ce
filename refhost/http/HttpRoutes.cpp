#include "refhost/http/HttpRoutes.h"

#include "refhost/http/AccountRoutes.h"
#include "refhost/http/CameraRoutes.h"
#include "refhost/http/ConfigRoutes.h"
#include "refhost/http/EventRoutes.h"
#include "refhost/http/ExportRoutes.h"
#include "refhost/http/HealthRoutes.h"
#include "refhost/http/HlsRoutes.h"
#include "refhost/http/LiveRoute.h"
#include "refhost/http/MetricsRoutes.h"
#include "refhost/http/RecordingRoutes.h"
#include "refhost/http/SessionRoutes.h"
#include "refhost/http/SnapshotRoutes.h"
#include "refhost/http/StorageRoute.h"
#include "refhost/http/TalkRoute.h"
#include "refhost/media/Device.h"

namespace refhost
{
namespace
{

std::shared_ptr<const RecordingDirectory> presentRecordings()
{
    auto index = Device::recordings();
    return index == nullptr ? nullptr : std::make_shared<const IndexedRecordings>(std::move(index));
}

}  // namespace

void HttpRoutes::add(HttpService& service, const ServerView& view)
{
    HttpRouter& router = service.router();
    HealthRoutes::add(router, view);
    MetricsRoutes::add(router, view, service);
    AccountRoutes::add(router, service.users(), service.guard());
    CameraRoutes::add(router, view);
    SessionRoutes::add(router, view);
    RecordingRoutes::add(router, view);
    StorageRoute::add(router, view);
    ExportRoutes::add(router, service.background(), presentRecordings);
    SnapshotRoutes::add(
        router, view, std::make_shared<SnapshotService>([] { return Device::streams(); }, presentRecordings));
    const auto fragments = std::make_shared<FragmentStreams>(HostClock::system());
    LiveRoute::add(router, *view.access, fragments, {service.background(), presentRecordings});
    HlsRoutes::add(router, std::make_shared<HlsStreams>(fragments, HostClock::system()));
    TalkRoute::add(router, *view.access, HostClock::system());
    EventRoutes::add(router, *view.access);
    ConfigRoutes::add(router, view);
    router.add({"GET", "/api/v1/openapi.json", HttpAccess::open(),
                [](const HttpRequest&) { return HttpReply::json(openApi()); }});
}

const char* HttpRoutes::openApi()
{
    return
#include "OpenApi.inc"
        ;
}

}  // namespace refhost
