// libQVTranslate's exported calls: thread-to-language bindings and message look-ups.
#include "translate/QVTranslate.h"

#include <pthread.h>

#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "translate/LangCatalog.h"

namespace {

// The catalogs, read once on first use and only read afterwards (no lock needed after the
// call_once that fills them).
struct CatalogStore {
    std::once_flag once;
    qvt::Catalogs catalogs;
};

CatalogStore& Store() {
    // Never destroyed: request threads may still translate while the process exits.
    static CatalogStore* store = new CatalogStore;
    return *store;
}

const qvt::Catalogs& Catalogs() {
    CatalogStore& s = Store();
    std::call_once(s.once, [&s] {
        const std::string root = qvt::InstallPath();
        if (!root.empty()) {
            s.catalogs = qvt::LoadCatalogs(root + "/middle/lang");
        }
    });
    return s.catalogs;
}

// Thread key -> language. m_mutex guards m_map.
struct Bindings {
    std::shared_mutex m_mutex;
    std::unordered_map<std::string, std::string> m_map;
};

Bindings& TheBindings() {
    static Bindings* b = new Bindings;
    return *b;
}

// The catalog for `language`: its own, else the one of its primary part ("en" for "en-US").
const qvt::DomainTexts* FindLanguage(const qvt::Catalogs& all, const std::string& language) {
    if (language.empty()) {
        return nullptr;
    }
    const std::string lower = qvt::LowerAscii(language);
    auto it = all.find(lower);
    if (it != all.end()) {
        return &it->second;
    }
    const std::string::size_type cut = lower.find_first_of("-_");
    if (cut != std::string::npos && cut > 0) {
        it = all.find(lower.substr(0, cut));
        if (it != all.end()) {
            return &it->second;
        }
    }
    return nullptr;
}

bool FindText(const qvt::DomainTexts* texts, const std::string& domain, const std::string& id,
              std::string& out) {
    if (texts == nullptr) {
        return false;
    }
    auto d = texts->find(domain);
    if (d == texts->end()) {
        return false;
    }
    auto t = d->second.find(id);
    if (t == d->second.end()) {
        return false;
    }
    out = t->second;
    return true;
}

}  // namespace

std::string qv_tipsThreadKey() {
    char buf[16];
    std::snprintf(buf, sizeof(buf), "%u", static_cast<unsigned>(pthread_self()));
    return buf;
}

void qv_tipsTranslate_typeInsert(const std::string& threadKey, const std::string& language) {
    try {
        Bindings& b = TheBindings();
        std::unique_lock<std::shared_mutex> lock(b.m_mutex);
        if (language.empty()) {
            b.m_map.erase(threadKey);
        } else {
            b.m_map[threadKey] = language;
        }
    } catch (...) {
        // Out of memory: the thread keeps its previous language.
    }
}

std::string qv_tipsThreadLanguage() {
    try {
        const std::string key = qv_tipsThreadKey();
        Bindings& b = TheBindings();
        std::shared_lock<std::shared_mutex> lock(b.m_mutex);
        auto it = b.m_map.find(key);
        return it == b.m_map.end() ? std::string() : it->second;
    } catch (...) {
        return "";
    }
}

std::string qv_tipsTranslate2(const std::string& id, const std::string& domain) {
    try {
        const qvt::Catalogs& all = Catalogs();
        const std::string dom = domain.empty() ? "default" : domain;
        std::string text;
        if (FindText(FindLanguage(all, qv_tipsThreadLanguage()), dom, id, text)) {
            return text;
        }
        if (FindText(FindLanguage(all, QVT_DEFAULT_LANGUAGE), dom, id, text)) {
            return text;
        }
        return "";
    } catch (...) {
        return "";
    }
}
