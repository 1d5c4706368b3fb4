#include "service_process.h"

#include "private_bus.h"
#include "sim_events_process.h"
#include "sim_zones_process.h"

ServiceProcess::ServiceProcess(const ServiceOptions &options)
{
        bus_address_ = private_bus_unreachable_address();
        if (options.bus == ServiceBus::private_with_zones) {
                bus_ = std::make_unique<PrivateBus>(options.bus_config);
                zones_ = std::make_unique<SimZonesProcess>(bus_->address(), options.zones_scenario);
                events_ = std::make_unique<SimEventsProcess>(bus_->address());
                bus_address_ = bus_->address();
        } else if (options.bus == ServiceBus::existing) {
                bus_address_ = options.bus_address;
        }
        std::vector<std::string> env = {"G_MESSAGES_DEBUG=" + std::string(options.debug_log ? "all" : ""),
                                        "DBUS_SYSTEM_BUS_ADDRESS=" + bus_address_};
        env.insert(env.end(), options.environment.begin(), options.environment.end());

        std::vector<std::string> argv = {TRELVO_SANDBOX, "--conf-path", TRELVO_CONF_DIR};
        if (!options.conf_dir.empty())
                argv.insert(argv.end(), {"--conf-dir", options.conf_dir});
        if (options.conf_read_only)
                argv.push_back("--conf-readonly");
        if (options.keep_net)
                argv.push_back("--keep-net");
        argv.insert(argv.end(), {"--", TRELVO_BINARY});
        process_ = std::make_unique<ChildProcess>(argv, env);
}

ServiceProcess::~ServiceProcess() = default;
