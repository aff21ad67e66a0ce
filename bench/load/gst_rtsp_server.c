/* The server that ours is compared with: GStreamer's own RTSP server with one shared stream.
 * usage: bench_gst_rtsp_server PORT LAUNCH_LINE [CERTIFICATE_AND_KEY]
 * It listens on 127.0.0.1 only and serves rtsp://127.0.0.1:PORT/bench, or rtsps:// with a PEM file. */
#include <gst/rtsp-server/rtsp-server.h>
#include <stdio.h>

static gboolean remove_stale_sessions(gpointer server)
{
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(GST_RTSP_SERVER(server));
    gst_rtsp_session_pool_cleanup(pool);
    g_object_unref(pool);
    return G_SOURCE_CONTINUE;
}

/* Has the server speak TLS alone, and lets everybody watch. */
static gboolean set_up_tls(GstRTSPServer* server, GstRTSPMediaFactory* factory, const char* file)
{
    GError* error = NULL;
    GTlsCertificate* certificate = g_tls_certificate_new_from_file(file, &error);
    if (certificate == NULL)
    {
        fprintf(stderr, "%s: %s\n", file, error->message);
        g_error_free(error);
        return FALSE;
    }
    GstRTSPAuth* auth = gst_rtsp_auth_new();
    gst_rtsp_auth_set_tls_certificate(auth, certificate);
    g_object_unref(certificate);
    GstRTSPToken* token =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "anyone", NULL);
    gst_rtsp_auth_set_default_token(auth, token);
    gst_rtsp_token_unref(token);
    gst_rtsp_media_factory_add_role(factory, "anyone", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN,
                                    TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, NULL);
    gst_rtsp_server_set_auth(server, auth);
    g_object_unref(auth);
    return TRUE;
}

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc != 3 && argc != 4)
    {
        fprintf(stderr, "usage: %s PORT LAUNCH_LINE [CERTIFICATE_AND_KEY]\n", argv[0]);
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
    if (argc == 4 && !set_up_tls(server, factory, argv[3]))
    {
        return 1;
    }

    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
    gst_rtsp_mount_points_add_factory(mounts, "/bench", factory);
    g_object_unref(mounts);

    if (gst_rtsp_server_attach(server, NULL) == 0)
    {
        fprintf(stderr, "cannot listen on 127.0.0.1:%s\n", argv[1]);
        return 1;
    }
    g_timeout_add_seconds(2, remove_stale_sessions, server);
    printf("%s://127.0.0.1:%s/bench\n", argc == 4 ? "rtsps" : "rtsp", argv[1]);
    fflush(stdout);
    g_main_loop_run(loop);
    return 0;
}
