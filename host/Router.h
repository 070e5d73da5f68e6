// Router: the handler modules (loaded with dlopen) and the table from URL path to handler.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/HostConfig.h"
#include "host/WhModule.h"

namespace wh {

struct Route {
    WhHandler handler = nullptr;
    void* userData = nullptr;
    std::string module;  // the [modules] name, for messages
};

// Filled once on the main thread before the server starts (LoadModules), then only read by the
// worker threads: no lock is needed because nothing changes while requests run.
class Router {
public:
    Router();
    ~Router();
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    // Loads every module of `config`, in order, and lets each register its handlers. `services`
    // supplies the host calls copied into every module's registry (isStopping, waitStopping,
    // isConnectionOk). False with `error` set when a module cannot be loaded, lacks the entry
    // point, fails to register, or registers a path twice.
    bool LoadModules(const HostConfig& config, const WhRegistry& services, std::string& error);

    // Adds one handler: `prefix` is the module's ("" or "/x"), `path` as the module gave it.
    // 0, or -1 for a null handler or a path already taken.
    int Add(const std::string& module, const std::string& prefix, const char* path,
            WhHandler handler, void* userData);

    // The handler for a request path (decoded, with its leading "/"), or null: an exact
    // registration first, then the longest registered directory ("x/") that holds the path.
    const Route* Find(const std::string& path) const;

    // The module prefixes, as CivetWeb handler URIs ("/" for the root).
    std::vector<std::string> MountPoints() const;

private:
    struct ModuleRegistry;  // a WhRegistry with what addHandler needs to reach this router
    static int AddHandlerThunk(WhRegistry* registry, const char* path, WhHandler handler,
                               void* userData);

    std::map<std::string, Route> m_mapExact;      // "/console/login"
    std::map<std::string, Route> m_mapDirectory;  // "/console/files/"
    std::vector<std::string> m_vecMountPoints;
    std::vector<std::unique_ptr<ModuleRegistry>> m_vecRegistries;  // kept for the process life
    bool m_bRegistering = false;  // addHandler is accepted only inside wh_module_register
};

}  // namespace wh
