/* A host: it loads the library, logs in at a camera, reads the camera's clock and counts the frames of one
 * stream. The ring, the frame queue and the services with little to say stand beside it, to take as they are.
 *
 *     LENSWIRE_PASSWORD=... record PLUGIN ADDRESS PORT USER FRAMES
 *
 * PLUGIN is the path of liblenswire.so, or - in a program that is linked with it. The library finds the
 * host's services by name, so the program is linked with -rdynamic. */
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "frame_queue.h"
#include "lenswire/lenswire.h"
#include "ring.h"

/* The camera. */
static uint32_t ip;
static int port;
static struct LoginInfo login;

/* The stream: the host's objects, which stay where they are until the library has stopped. */
static struct ReceiveBuffer buffer;
static struct FrameQueue frames;
static struct HostStreamInfo info;

/* What goes to the library and what comes back. */
static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static struct StreamRequest request;
static int request_waits, restart_wanted;

/* -- Services: the library asks. */

int Private_Protocol_GetRequestFromQueue(struct StreamRequest* out) {
    pthread_mutex_lock(&mutex);
    const int found = request_waits;
    if (found) *out = request;
    request_waits = 0;
    pthread_mutex_unlock(&mutex);
    return found ? 0 : -1;
}

/* A message of kind 3: the stream has failed and is no longer received. */
int networkInsertMessageToQueue(int channel, int stream, void* message, int kind) {
    (void)channel, (void)stream, (void)message;
    pthread_mutex_lock(&mutex);
    if (kind == 3) restart_wanted = 1;
    pthread_mutex_unlock(&mutex);
    return 0;
}

void* networkGetStreampPrivateInfo(int first, int second) { return first == 0 && second == 0 ? &info : NULL; }

/* -- Calls: this host asks. A name is looked up where it is called; its type comes from its declaration. */

static void* plugin;
#define CALL(name) LENSWIRE_FIND(plugin, name)

/* Logs in, asks the camera for the stream, and posts the request that has the library receive it. */
static int connect_camera(struct StreamConn* unit) {
    uint8_t answer[LENSWIRE_STREAM_ANSWER_SIZE];
    if (CALL(PC_Login)(unit, ip, port, &login, 0, 0) != 0) return 0;
    if (CALL(PC_GetStream)(unit, 0, 0, answer) != 0) return 0;
    pthread_mutex_lock(&mutex);
    request.ulType = STREAM_REQ_OPEN;
    request.info.pStreamConn = unit;
    request.info.pRecvBuf = &buffer;
    request.info.pStream = &frames;
    request_waits = 1;
    restart_wanted = 0;
    pthread_mutex_unlock(&mutex);
    return 1;
}

static void show_time(void) {
    struct IpcTimeInfo now;
    if (CALL(Prv_GetTimeProperty)(0, ip, &now) != 0) return;
    printf("\ncamera time %04u-%02u-%02u %02u:%02u:%02u\n", now.usYear, now.ucMonth, now.ucDay, now.ucHour,
           now.ucMinute, now.ucSecond);
}

/* Until there are enough frames, or none came for ten seconds. A stream that failed is asked for again. */
static long count_frames(struct StreamConn* unit, long wanted, int* restarts) {
    long count = 0;
    for (int quiet = 0; count < wanted && quiet < 100; ++quiet) {
        struct Frame* frame = frame_queue_wait(&frames, 100);
        if (frame != NULL) {
            ++count;
            quiet = 0;
            frame_queue_give_back(&frames, frame); /* a recorder writes frame_data(frame) first */
        }
        pthread_mutex_lock(&mutex);
        const int restart = restart_wanted;
        pthread_mutex_unlock(&mutex);
        if (restart) *restarts += connect_camera(unit);
    }
    return count;
}

int main(int argc, char** argv) {
    const char* password = getenv("LENSWIRE_PASSWORD");
    if (argc != 6 || password == NULL) return fputs("see the top of record.c\n", stderr), 2;
    ip = inet_addr(argv[2]);
    port = atoi(argv[3]);
    memcpy(login.szUserName, argv[4], strnlen(argv[4], sizeof login.szUserName));
    memcpy(login.szPassword, password, strnlen(password, sizeof login.szPassword));
    const long wanted = atol(argv[5]);

    plugin = dlopen(strcmp(argv[1], "-") == 0 ? NULL : argv[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL || CALL(PC_InitCtx) == NULL) return fprintf(stderr, "%s\n", dlerror()), 1;
    frame_queue_open(&frames, 0, 0, 16 << 20);
    if (ring_open(&buffer, LENSWIRE_RING_LEAST) != 0 || CALL(PC_InitCtx)() != 0) return 1;
    struct StreamConn* unit = CALL(PC_CreateNew)();
    if (unit == NULL) return 1;
    long count = 0;
    int restarts = 0;
    if (connect_camera(unit)) {
        show_time();
        count = count_frames(unit, wanted, &restarts);
    }
    const int stream_socket = unit->sockFd;
    CALL(PC_Delete)(unit);
    CALL(PC_UnInitCtx)(); /* from here on nobody is in the services, nor touches the objects and the socket */
    if (stream_socket >= 0) close(stream_socket);
    printf("\n%ld frames of %.5s, %u lost, %d restarts\n", count, info.szCodec, frame_queue_lost(&frames),
           restarts);
    ring_close(&buffer);
    frame_queue_close(&frames);
    return dlclose(plugin) != 0 || count < wanted;
}
