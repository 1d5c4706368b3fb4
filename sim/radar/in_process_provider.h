// A scene provider served from inside a test process, on a thread of its own, so a test
// can push hand-made packets (good, short or lying frames) to a real subscriber.
#pragma once

#include "scene_publisher.h"

#include <memory>

class InProcessProvider {
public:
        InProcessProvider(const std::string &path, std::vector<std::string> classes);
        ~InProcessProvider();
        InProcessProvider(const InProcessProvider &) = delete;
        InProcessProvider &operator=(const InProcessProvider &) = delete;

        // False when the socket could not be bound (see error()).
        bool ok() const { return ok_; }
        const std::string &error() const { return error_; }
        ScenePublisher &publisher() { return *publisher_; }

private:
        static gpointer run(gpointer data);

        GMainContext *context_;
        GMainLoop *loop_;
        std::unique_ptr<ScenePublisher> publisher_;
        GThread *thread_ = nullptr;
        bool ok_ = false;
        std::string error_;
};
