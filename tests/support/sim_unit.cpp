#include "sim_unit.h"

#include "credentials.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

SimUnit::SimUnit(const std::string &scenario)
{
        gchar *dir = g_dir_make_tmp("trelvo-unit-XXXXXX", nullptr);
        directory_ = dir;
        g_free(dir);
        radar_ = std::make_unique<ChildProcess>(std::vector<std::string>{
                TRELVO_SIM_RADAR, "--socket", directory_ + "/scene.sock", TRELVO_SCENARIOS "/" + scenario});
        radar_->wait_for_line("sim-radar: serving");
}

SimUnit::~SimUnit()
{
        radar_.reset();
        for (const char *file : {"/scene.sock", "/trelvo.conf"})
                g_remove((directory_ + file).c_str());
        g_rmdir(directory_.c_str());
}

void SimUnit::configure(const std::string &password, const std::string &camera_lines)
{
        gchar *pass = encrypt_password(password.c_str());
        const std::string text = "[camera]\nip=127.0.0.1\nuser=root\npass=" + std::string(pass) + "\n" +
                                 camera_lines + "\n[tracking]\nenabled=true\n";
        g_free(pass);
        if (!g_file_set_contents((directory_ + "/trelvo.conf").c_str(), text.c_str(), -1, nullptr))
                ADD_FAILURE() << "cannot write " << directory_ << "/trelvo.conf";
}

std::unique_ptr<ServiceProcess> SimUnit::start_service() const
{
        ServiceOptions options;
        options.conf_dir = directory_;
        options.keep_net = true;
        options.environment = {"RADAR_SCENE_PROVIDER_SOCKET=" + directory_ + "/scene.sock"};
        auto service = std::make_unique<ServiceProcess>(options);
        service->wait_for_line("DEBUG: Running");
        return service;
}

int64_t SimUnit::object_appeared_us(uint32_t id) const
{
        const std::string prefix = "sim-radar: object " + std::to_string(id) + " appears at ";
        for (const std::string &line : radar_->matching(prefix))
                if (line.rfind(prefix, 0) == 0)
                        return std::stoll(line.substr(prefix.size()));
        return -1;
}
