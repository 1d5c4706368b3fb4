// Writes the fuzzers' binary seeds, made with the real encoders: scene frames (protobuf)
// and zone service payloads (GVariant). The text seeds live in fuzz/corpus.
//
//   make_seeds DIR    writes DIR/scene/* and DIR/zones/*
#include "scene.pb.h"
#include "scene_publisher.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <cstdio>
#include <string>

namespace {

struct SceneObject {
        uint32_t id;
        uint32_t class_id;
        float x, y;          // bounding box point in the normalised plane
        float range, azimuth; // polar position
};

// Zone service payloads in GVariant's text form.
const std::pair<const char *, const char *> zone_seeds[] = {
        {"listing", "([(1, [('gate', true), ('yard', false)]), (2, [('road', true)])],)"},
        {"listing_empty", "(@a(ia(sb)) [],)"},
        {"areas", "([('excludeArea', [(-0.5, -0.5), (0.5, -0.5), (0.5, 0.5), (-0.5, 0.5)]), "
                  "('includeArea', [(0.0, 0.0), (1.0, 0.0), (1.0, 1.0)]), ('excludeArea', [(0.9, 0.9), (1.0, 1.0)]), "
                  "('excludeArea', [(-1.0, 0.0), (-1.0, 1.0), (0.0, 1.0)])],)"},
        {"areas_vertical_edges", "([('excludeArea', [(0.0, -1.0), (0.0, 1.0), (0.5, 1.0), (0.5, -1.0)])], 'extra')"},
        {"wrong_type", "([(1, 'gate')],)"},
};

// The simulated radar's frame, its length field off by `off` (the seeds' frames are short).
std::string seeds_frame(const Scene &scene, int off = 0)
{
        std::vector<uint8_t> frame = scene_publisher_frame(scene);
        frame[3] = static_cast<uint8_t>(frame[3] + off);
        return std::string(frame.begin(), frame.end());
}

Scene seeds_scene(std::initializer_list<SceneObject> objects)
{
        Scene scene;
        scene.set_time(1000);
        for (const SceneObject &o : objects) {
                Object *object = scene.add_objects();
                object->set_id(o.id);
                object->mutable_labels()->add_labels()->set_id(o.class_id);
                object->mutable_bounding_box()->set_left(o.x);
                object->mutable_bounding_box()->set_top(o.y);
                object->mutable_position()->set_x(o.range);
                object->mutable_position()->set_y(o.azimuth);
        }
        return scene;
}

void seeds_write(const std::string &dir, const char *name, const std::string &bytes)
{
        g_mkdir_with_parents(dir.c_str(), 0755);
        const std::string path = dir + "/" + name;
        if (!g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()), nullptr)) {
                fprintf(stderr, "make_seeds: cannot write %s\n", path.c_str());
                exit(1);
        }
}

void seeds_scenes(const std::string &dir)
{
        const SceneObject one_human = {1, 3, 0.1f, 0.1f, 10, 0};
        seeds_write(dir, "empty", seeds_frame(Scene()));
        seeds_write(dir, "every_class", seeds_frame(seeds_scene({{1, 0, 0.1f, 0.1f, 10, 0}, {2, 1, 0.2f, 0.1f, 10, 3},
                                                                 {3, 2, 0.3f, 0.1f, 10, 6}, {4, 3, 0.4f, 0.1f, 10, 9},
                                                                 {5, 4, 0.5f, 0.1f, 10, 12}, {6, 5, 0.6f, 0.1f, 10, 15}})));
        seeds_write(dir, "bad_class", seeds_frame(seeds_scene({one_human, {2, 4294967295u, 0, 0, 5, 1}})));
        seeds_write(dir, "length_short", seeds_frame(seeds_scene({one_human}), -4));
        seeds_write(dir, "length_long", seeds_frame(seeds_scene({one_human}), 60));

        Scene partial = seeds_scene({one_human});
        partial.add_objects()->set_id(2); // no box: ends the walk
        Object *no_labels = partial.add_objects();
        no_labels->set_id(3);
        no_labels->mutable_bounding_box();
        no_labels->mutable_position()->set_x(3.0f);
        no_labels->mutable_labels(); // present but empty
        Event *event = partial.add_events();
        event->set_action(EVENT_MERGE);
        event->add_object_ids(1);
        event->add_object_ids(2);
        seeds_write(dir, "faulty_objects", seeds_frame(partial));
}

// The type string, a NUL byte, then the value in GVariant's serialized form.
std::string seeds_variant(const char *text)
{
        g_autoptr(GVariant) value = g_variant_parse(nullptr, text, nullptr, nullptr, nullptr);
        g_autoptr(GVariant) normal = g_variant_get_normal_form(value);
        const std::string bytes(static_cast<const char *>(g_variant_get_data(normal)), g_variant_get_size(normal));
        return g_variant_get_type_string(normal) + std::string(1, '\0') + bytes;
}

} // namespace

int main(int argc, char **argv)
{
        if (argc != 2) {
                fprintf(stderr, "usage: make_seeds DIR\n");
                return 2;
        }
        const std::string dir = argv[1];
        seeds_scenes(dir + "/scene");
        for (const auto &[name, text] : zone_seeds)
                seeds_write(dir + "/zones", name, seeds_variant(text));
        google::protobuf::ShutdownProtobufLibrary();
        return 0;
}
