#include "sim_unit.h"

#include "credentials.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cmath>

SimUnit::SimUnit(const std::string &scenario, double rate_hz)
{
        std::vector<std::string> argv = {TRELVO_SIM_RADAR, "--socket", directory_.file("scene.sock")};
        if (rate_hz > 0.0)
                argv.insert(argv.end(), {"--rate", std::to_string(rate_hz)});
        argv.push_back(TRELVO_SCENARIOS "/" + scenario);
        radar_ = std::make_unique<ChildProcess>(argv);
        radar_->wait_for_line("sim-radar: serving");
}

void SimUnit::configure(const std::string &password, const std::string &camera_lines, bool tracking)
{
        g_autofree gchar *pass = encrypt_password(password.c_str());
        const std::string text = "[camera]\nip=127.0.0.1\nuser=root\npass=" + std::string(pass) + "\n" +
                                 camera_lines + "\n[tracking]\nenabled=" + (tracking ? "true" : "false") + "\n";
        if (!g_file_set_contents(directory_.file("trelvo.conf").c_str(), text.c_str(), -1, nullptr))
                ADD_FAILURE() << "cannot write " << directory_.file("trelvo.conf");
}

std::string SimUnit::conf_text() const
{
        return file_text(directory_.file("trelvo.conf"));
}

std::unique_ptr<ServiceProcess> SimUnit::start_service() const
{
        auto service = std::make_unique<ServiceProcess>(ServiceOptions{
                .conf_dir = directory_.path(),
                .environment = {"RADAR_SCENE_PROVIDER_SOCKET=" + directory_.file("scene.sock")}, .keep_net = true});
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

double SimUnit::walker_azimuth() const
{
        const int64_t since = object_appeared_us(1);
        if (since < 0)
                return NAN;
        // 1.4 m/s to and fro between (-10, 20) and (10, 20).
        const double walked = 1.4 * static_cast<double>(g_get_monotonic_time() - since) / 1e6;
        const double leg = std::fmod(walked, 40.0);
        const double x = leg < 20.0 ? -10.0 + leg : 10.0 - (leg - 20.0);
        return std::atan2(x, 20.0) * 180.0 / M_PI;
}
