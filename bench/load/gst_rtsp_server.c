/* The server that ours is compared with: GStreamer's own RTSP server with one shared stream.
 * usage: bench_gst_rtsp_server PORT LAUNCH_LINE
 * It listens on 127.0.0.1 only and serves rtsp://127.0.0.1:PORT/bench. */
#include <gst/rtsp-server/rtsp-server.h>
#include <stdio.h>

static gboolean remove_stale_sessions(gpointer server)
{
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(GST_RTSP_SERVER(server));
    gst_rtsp_session_pool_cleanup(pool);
    g_object_unref(pool);
    return G_SOURCE_CONTINUE;
}

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc != 3)
    {
        fprintf(stderr, "usage: %s PORT LAUNCH_LINE\n", argv[0]);
        return 2;
    }

    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    GstRTSPServer* server = gst_rtsp_server_new();
    gst_rtsp_server_set_address(server, "127.0.0.1");
    gst_rtsp_server_set_service(server, argv[1]);
    gst_rtsp_server_set_backlog(server, 1024);

    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, argv[2]);
    gst_rtsp_media_factory_set_shared(factory, TRUE);

    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
    gst_rtsp_mount_points_add_factory(mounts, "/bench", factory);
    g_object_unref(mounts);

    if (gst_rtsp_server_attach(server, NULL) == 0)
    {
        fprintf(stderr, "cannot listen on 127.0.0.1:%s\n", argv[1]);
        return 1;
    }
    g_timeout_add_seconds(2, remove_stale_sessions, server);
    printf("rtsp://127.0.0.1:%s/bench\n", argv[1]);
    fflush(stdout);
    g_main_loop_run(loop);
    return 0;
}
