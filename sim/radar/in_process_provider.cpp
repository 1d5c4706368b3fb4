#include "in_process_provider.h"

InProcessProvider::InProcessProvider(const std::string &path, std::vector<std::string> classes)
        : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)),
          publisher_(std::make_unique<ScenePublisher>(std::move(classes)))
{
        GError *error = nullptr;
        ok_ = publisher_->listen(path, context_, &error);
        if (!ok_) {
                error_ = error->message;
                g_error_free(error);
                return;
        }
        thread_ = g_thread_new("scene-provider", run, this);
}

InProcessProvider::~InProcessProvider()
{
        if (thread_) {
                g_main_loop_quit(loop_);
                g_thread_join(thread_);
        }
        // The publisher's sources belong to the context: drop them first.
        publisher_.reset();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
}

gpointer InProcessProvider::run(gpointer data)
{
        auto *self = static_cast<InProcessProvider *>(data);
        g_main_context_push_thread_default(self->context_);
        g_main_loop_run(self->loop_);
        g_main_context_pop_thread_default(self->context_);
        return nullptr;
}
