/* Client of the radar unit's scene provider: the classification names the radar reports
 * and a stream of scene frames delivered on the library's own reader thread. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct RadarSceneSubscriber RadarSceneSubscriber;

/* Receives one frame: a 4-byte big-endian total length followed by the message. The
 * buffer is malloc'ed, never shorter than its length field says (a short packet is padded
 * with zero bytes), and the callee releases it with free(). Runs on the reader thread. */
typedef void (*RadarSceneMessageCallback)(uint8_t *frame);

/* The three arguments are accepted for compatibility and otherwise ignored. */
RadarSceneSubscriber *radar_scene_subscriber_create(int source, int format, int flags);
/* Unsubscribes if needed; the classification names become invalid. NULL does nothing. */
void radar_scene_subscriber_delete(RadarSceneSubscriber *subscriber);

void radar_scene_subscriber_set_bounding_box_enabled(RadarSceneSubscriber *subscriber);
void radar_scene_subscriber_set_on_message_arrived_callback(RadarSceneSubscriber *subscriber,
                                                            RadarSceneMessageCallback callback);
/* Non-zero: a lost or refused connection is retried every second until unsubscribe. */
void radar_scene_subscriber_set_reconnect(RadarSceneSubscriber *subscriber, int reconnect);

/* Connects if no names are known yet and returns the number of names; *classifications
 * points to them (owned by the library, valid until delete). Returns 0 with a NULL array
 * when the provider cannot be reached. */
int radar_scene_subscriber_get_object_classifications(RadarSceneSubscriber *subscriber,
                                                      char ***classifications);

/* Starts the reader thread. 0 on success, a negative errno otherwise. Never call either
 * of these from the message callback. */
int radar_scene_subscriber_subscribe(RadarSceneSubscriber *subscriber);
/* Stops the reader thread and closes the connection; no callback runs after it returns. */
int radar_scene_subscriber_unsubscribe(RadarSceneSubscriber *subscriber);

#ifdef __cplusplus
}
#endif
