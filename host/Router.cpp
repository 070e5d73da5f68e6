// Router: loading the handler modules, their registries and the path look-up.
#include "host/Router.h"

#include <dlfcn.h>

namespace wh {

struct Router::ModuleRegistry {
    WhRegistry reg;  // reg.hostData points back at this holder
    Router* router = nullptr;
    std::string name;
    std::string prefix;
    std::string installPath;
};

Router::Router() = default;
Router::~Router() = default;

int Router::Add(const std::string& module, const std::string& prefix, const char* path,
                WhHandler handler, void* userData) {
    if (handler == nullptr || path == nullptr)
        return -1;
    std::string rel = path;
    while (!rel.empty() && rel.front() == '/')
        rel.erase(0, 1);
    std::string full = rel.empty() ? (prefix.empty() ? "/" : prefix) : prefix + "/" + rel;
    Route route;
    route.handler = handler;
    route.userData = userData;
    route.module = module;
    bool directory = !rel.empty() && rel.back() == '/';
    auto& table = directory ? m_mapDirectory : m_mapExact;
    return table.emplace(full, route).second ? 0 : -1;
}

const Route* Router::Find(const std::string& path) const {
    auto exact = m_mapExact.find(path);
    if (exact != m_mapExact.end())
        return &exact->second;
    if (m_mapDirectory.empty())
        return nullptr;
    // "/a/b/c": try "/a/b/c/", "/a/b/", "/a/", "/" - the longest directory first.
    std::string probe = path;
    if (probe.empty() || probe.back() != '/')
        probe += '/';
    for (;;) {
        auto it = m_mapDirectory.find(probe);
        if (it != m_mapDirectory.end())
            return &it->second;
        if (probe.size() <= 1)
            return nullptr;
        std::string::size_type slash = probe.rfind('/', probe.size() - 2);
        if (slash == std::string::npos)
            return nullptr;
        probe.erase(slash + 1);
    }
}

std::vector<std::string> Router::MountPoints() const {
    return m_vecMountPoints;
}

bool Router::LoadModules(const HostConfig& config, const WhRegistry& services, std::string& error) {
    for (const ModuleEntry& entry : config.modules) {
        // RTLD_NOW: a module with a missing symbol fails here, at start, not on a request.
        void* lib = ::dlopen(entry.path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib == nullptr) {
            const char* why = ::dlerror();
            error = "cannot load module \"" + entry.name + "\" from " + entry.path + ": " +
                    (why != nullptr ? why : "unknown error");
            return false;
        }
        auto registerFn = reinterpret_cast<WhModuleRegisterFn>(::dlsym(lib, WH_MODULE_ENTRY));
        if (registerFn == nullptr) {
            error = "module \"" + entry.name + "\" (" + entry.path + ") does not export " +
                    WH_MODULE_ENTRY;
            return false;
        }
        auto holder = std::make_unique<ModuleRegistry>();
        holder->router = this;
        holder->name = entry.name;
        holder->prefix = entry.prefix;
        holder->installPath = config.installPath;
        holder->reg = services;
        holder->reg.apiVersion = WH_MODULE_API_VERSION;
        holder->reg.prefix = holder->prefix.c_str();
        holder->reg.installPath = holder->installPath.c_str();
        holder->reg.addHandler = &AddHandlerThunk;
        holder->reg.hostData = holder.get();
        m_bRegistering = true;
        int rc = registerFn(&holder->reg);
        m_bRegistering = false;
        if (rc != 0) {
            error = "module \"" + entry.name + "\" (" + entry.path +
                    ") refused to start: " + WH_MODULE_ENTRY + " returned " + std::to_string(rc);
            return false;
        }
        m_vecMountPoints.push_back(entry.prefix.empty() ? "/" : entry.prefix);
        m_vecRegistries.push_back(std::move(holder));
        // The library stays loaded for the life of the process: handlers may run until the end.
    }
    return true;
}

int Router::AddHandlerThunk(WhRegistry* registry, const char* path, WhHandler handler,
                            void* userData) {
    if (registry == nullptr || registry->hostData == nullptr)
        return -1;
    auto* holder = static_cast<ModuleRegistry*>(registry->hostData);
    Router* router = holder->router;
    if (router == nullptr || !router->m_bRegistering)
        return -1;  // registrations after start would race with the worker threads' look-ups
    return router->Add(holder->name, holder->prefix, path, handler, userData);
}

}  // namespace wh
