#include "radar_metadata.h"

#include "exclude_areas.h"
#include "geometry.h"
#include "gmutex_tsan.h"
#include "log.h"
#include "radar_scene_subscriber.h"
#include "scene_frame.h"
#include "settings.h"
#include "tracking.h"

#include <cstdlib>

namespace {

// Radar targets are keyed by (source, object id); the scene intake is source 1.
constexpr uint32_t radar_source_id = 1;

// One object handed to the tracker; seen = accepted in the scene being handled.
struct KnownObject {
        uint32_t id;
        bool seen;
};

struct RadarMetadata {
        bool subscribed;
        RadarSceneSubscriber *subscriber;
        int pending_enable;

        // Written under the mutex before any subscription exists; the scene thread then
        // only reads the table and count, so it reads them without the lock.
        ObjectClass *class_table;
        int32_t class_count;
        uint32_t class_mask;

        // Touched by the scene handler while subscribed, and by cleanup after the
        // subscriber is gone.
        GList *known_objects;
        // Where the next lookup starts: the radar lists its objects in much the same order
        // every scene, so the search usually ends at its first step. Valid within a scene.
        GList *search_start;
};

RadarMetadata metadata; // file-level, so it starts zeroed: only non-zero starts are written
GMutex metadata_mutex; // the class table, count and mask

ObjectClass radar_metadata_class_of(const char *name)
{
        if (g_strcmp0(name, "SmallObject") == 0)
                return OBJECT_CLASS_SMALL_OBJECT;
        if (g_strcmp0(name, "Human") == 0)
                return OBJECT_CLASS_HUMAN;
        if (g_strcmp0(name, "Vehicle") == 0)
                return OBJECT_CLASS_VEHICLE;
        if (g_strcmp0(name, "Raw") == 0)
                return OBJECT_CLASS_RAW;
        if (g_strcmp0(name, "RawAssociated") == 0)
                return OBJECT_CLASS_RAW_ASSOCIATED;
        return OBJECT_CLASS_UNKNOWN;
}

// Under the mutex: the table of class codes by the library's class index, and the mask.
void radar_metadata_load_classes(void)
{
        char **names = nullptr;
        const int n = radar_scene_subscriber_get_object_classifications(metadata.subscriber, &names);
        metadata.class_table = n > 0 ? g_new0(ObjectClass, n) : nullptr;
        metadata.class_count = n;

        uint32_t mask = 0;
        for (int32_t i = 0; i < metadata.class_count; i++) {
                metadata.class_table[i] = radar_metadata_class_of(names[i]);
                if (names[i])
                        mask |= 1u << metadata.class_table[i];
        }
        metadata.class_mask = mask;
}

gboolean radar_metadata_apply_pending(gpointer)
{
        radar_metadata_set_enabled(metadata.pending_enable);
        return G_SOURCE_REMOVE;
}

// The operator's object-type switches; raw objects are always followed.
bool radar_metadata_class_followed(ObjectClass code)
{
        gboolean small, human, vehicle, unidentified;
        settings_get_object_types(&small, &human, &vehicle, &unidentified);
        switch (code) {
        case OBJECT_CLASS_SMALL_OBJECT:
                return small;
        case OBJECT_CLASS_HUMAN:
                return human;
        case OBJECT_CLASS_VEHICLE:
                return vehicle;
        case OBJECT_CLASS_UNKNOWN:
                return unidentified;
        case OBJECT_CLASS_RAW:
        case OBJECT_CLASS_RAW_ASSOCIATED:
                break;
        }
        return true;
}

void radar_metadata_log_fault(SceneObjectFault fault)
{
        switch (fault) {
        case SceneObjectFault::missing_id:
                log_error("%sgot object without id");
                break;
        case SceneObjectFault::missing_box:
                log_error("%sgot scene without a box");
                break;
        case SceneObjectFault::missing_position:
                log_error("%sgot scene without a polar position");
                break;
        case SceneObjectFault::missing_classification:
                log_error("%sgot object without classification");
                break;
        case SceneObjectFault::bad_classification:
                log_error("%sgot object with classification error");
                break;
        case SceneObjectFault::none:
                break;
        }
}

bool radar_metadata_mark_in(GList *from, GList *to, uint32_t id)
{
        for (GList *link = from; link != to; link = link->next) {
                auto *known = static_cast<KnownObject *>(link->data);
                if (known->id == id) {
                        known->seen = true;
                        metadata.search_start = link->next;
                        return true;
                }
        }
        return false;
}

// One linear search of the known objects, from where the last one ended, round to there.
void radar_metadata_mark_seen(uint32_t id)
{
        GList *start = metadata.search_start ? metadata.search_start : metadata.known_objects;
        if (radar_metadata_mark_in(start, nullptr, id) || radar_metadata_mark_in(metadata.known_objects, start, id))
                return;
        auto *known = g_new(KnownObject, 1);
        *known = {id, true};
        metadata.known_objects = g_list_append(metadata.known_objects, known);
        metadata.search_start = nullptr;
}

void radar_metadata_clear_seen(void)
{
        metadata.search_start = nullptr;
        for (GList *link = metadata.known_objects; link; link = link->next)
                static_cast<KnownObject *>(link->data)->seen = false;
}

// Objects of earlier scenes that this scene did not accept leave the tracker.
void radar_metadata_sweep(void)
{
        GList *link = metadata.known_objects;
        while (link) {
                GList *next = link->next;
                auto *known = static_cast<KnownObject *>(link->data);
                if (!known->seen) {
                        tracker_remove_target(radar_source_id, known->id);
                        g_free(known);
                        metadata.known_objects = g_list_delete_link(metadata.known_objects, link);
                }
                link = next;
        }
}

// Hands the scene's accepted objects to the tracker, in order. The first faulty object
// ends the walk: what came before it stays updated, the sweep handles the rest.
void radar_metadata_take_objects(const Scene &scene)
{
        for (const Object &object : scene.objects()) {
                SceneObjectFault fault = scene_object_check_identity(object);
                if (fault != SceneObjectFault::none) {
                        radar_metadata_log_fault(fault);
                        return;
                }
                if (exclude_areas_contains(static_cast<double>(object.bounding_box().left()),
                                           static_cast<double>(object.bounding_box().top())))
                        continue;
                int32_t class_index;
                fault = scene_object_check_classification(object, metadata.class_count, &class_index);
                if (fault != SceneObjectFault::none) {
                        radar_metadata_log_fault(fault);
                        return;
                }
                if (!radar_metadata_class_followed(metadata.class_table[class_index]))
                        continue;
                float pan, tilt, width;
                radar_to_camera(object.position().y(), object.position().x(), &pan, &tilt, &width);
                tracker_update_target(radar_source_id, object.id(), pan, tilt, width);
                radar_metadata_mark_seen(object.id());
        }
}

} // namespace

gboolean radar_metadata_setup(void)
{
        // A repeated set-up keeps the subscriber it has rather than leaking it.
        if (!metadata.subscriber)
                metadata.subscriber = radar_scene_subscriber_create(0, 3, 0);
        radar_scene_subscriber_set_bounding_box_enabled(metadata.subscriber);
        radar_scene_subscriber_set_on_message_arrived_callback(metadata.subscriber, radar_metadata_handle_scene);
        radar_scene_subscriber_set_reconnect(metadata.subscriber, TRUE);

        gmutex_tsan_create(&metadata_mutex);
        gmutex_tsan_lock(&metadata_mutex);
        if (!metadata.class_table)
                radar_metadata_load_classes();
        gmutex_tsan_unlock(&metadata_mutex);
        return TRUE;
}

void radar_metadata_cleanup(void)
{
        if (metadata.subscribed) {
                const int error = radar_scene_subscriber_unsubscribe(metadata.subscriber);
                if (error != 0)
                        log_error("%sFailed to unsusbcribe from metadata: error %d", error);
                metadata.subscribed = false;
        }
        g_clear_pointer(&metadata.subscriber, radar_scene_subscriber_delete);
        g_list_free_full(metadata.known_objects, g_free);
        metadata.known_objects = nullptr;
        metadata.search_start = nullptr;

        gmutex_tsan_lock(&metadata_mutex);
        g_clear_pointer(&metadata.class_table, g_free);
        metadata.class_count = 0;
        metadata.class_mask = 0;
        gmutex_tsan_unlock(&metadata_mutex);
}

void radar_metadata_set_enabled(gboolean enable)
{
        // A request still queued when cleanup ran finds no subscriber.
        if (!metadata.subscriber)
                return;
        if (enable && !metadata.subscribed) {
                metadata.subscribed = true;
                const int error = radar_scene_subscriber_subscribe(metadata.subscriber);
                if (error != 0)
                        log_error("%sFailed to susbcribe to metadata: error %d", error);
        } else if (!enable && metadata.subscribed) {
                const int error = radar_scene_subscriber_unsubscribe(metadata.subscriber);
                if (error != 0)
                        log_error("%sFailed to unsusbcribe from metadata: error %d", error);
                metadata.subscribed = false;
        }
}

void radar_metadata_request_enabled(gboolean enable)
{
        metadata.pending_enable = enable;
        g_idle_add(radar_metadata_apply_pending, nullptr);
}

uint32_t radar_metadata_get_object_classes(void)
{
        gmutex_tsan_lock(&metadata_mutex);
        const uint32_t mask = metadata.class_mask;
        gmutex_tsan_unlock(&metadata_mutex);
        return mask;
}

void radar_metadata_handle_scene(uint8_t *frame)
{
        // The scene's messages come from an arena whose first block is on this stack: one
        // scene costs a handful of allocations instead of several per object.
        alignas(16) char first_block[16384];
        google::protobuf::ArenaOptions arena_options;
        arena_options.initial_block = first_block;
        arena_options.initial_block_size = sizeof(first_block);
        google::protobuf::Arena arena(arena_options);
        Scene &scene = *google::protobuf::Arena::CreateMessage<Scene>(&arena);
        radar_metadata_clear_seen();
        const SceneFrameResult decoded = scene_frame_decode(frame, scene);
        if (decoded.status == SceneFrameStatus::bad_size)
                log_warning("%sGot invalid serialized scene size %d from provider", static_cast<int>(decoded.length));
        else if (decoded.status == SceneFrameStatus::parse_failed)
                log_warning("%sFailed to read deserialize scene from provider");
        else
                radar_metadata_take_objects(scene);
        radar_metadata_sweep();
        free(frame);
}
