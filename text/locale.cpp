// The global locale and its catalogs. The only file that knows Boost.Locale, whose exceptions end here.
//
// Every locale that was made is kept for the life of the process, since translations point into it. `locale_lock`
// guards what they are made from; the present name is published as a pointer to a text that is kept as well.

#include <atomic>
#include <boost/locale/generator.hpp>
#include <boost/locale/info.hpp>
#include <boost/locale/localization_backend.hpp>
#include <boost/locale/message.hpp>
#include <exception>
#include <fstream>
#include <iterator>
#include <locale>
#include <map>
#include <stdexcept>
#include <string>

#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "text/message_catalog.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/file_operations.h"
#include "vellcore/language.h"

namespace vell {
namespace {

struct KeptLocale {
    std::locale locale;
    std::string name;  // language, country and variant
};

Mutex locales_lock;
const ForkEntry fork_entry(ForkOrder::locales, locales_lock);

struct Locales {
    std::string messages_path VELL_GUARDED_BY(locales_lock);
    std::string domain VELL_GUARDED_BY(locales_lock);
    std::multimap<std::string, KeptLocale> kept VELL_GUARDED_BY(locales_lock);  // by full name; of all folders so far
    std::map<std::string, const KeptLocale*> present VELL_GUARDED_BY(locales_lock);  // of the present folder and domain
    std::atomic<const char*> name{""};                                               // of the locale that was set last
};

/// Made while the library is loaded and never destroyed: translations are asked for until the process ends.
Locales& all_locales = *new Locales;

std::string describe(const std::locale& locale) {
    const auto& facts = std::use_facet<boost::locale::info>(locale);
    std::string name = facts.language();
    if (!facts.country().empty()) name += "_" + facts.country();
    if (!facts.variant().empty()) name += "@" + facts.variant();
    return name;
}

/// The catalog that a locale's messages would come from; empty when there is none.
std::string catalog_of(const Locales& all, const std::locale& locale) VELL_REQUIRES(locales_lock) {
    const auto& facts = std::use_facet<boost::locale::info>(locale);
    const std::string country = facts.country().empty() ? "" : "_" + facts.country();
    const std::string variant = facts.variant().empty() ? "" : "@" + facts.variant();
    for (const std::string& behind : {country + variant, variant, country, std::string()}) {
        std::string path = all.messages_path + "/" + facts.language() + behind + "/LC_MESSAGES/" + all.domain + ".mo";
        if (file_exists(path.c_str())) return path;
    }
    return "";
}

/// Refuses a name whose catalog is damaged, which a lookup would read far outside.
void check_catalog(const Locales& all, const std::string& name) VELL_REQUIRES(locales_lock) {
    const std::string path = catalog_of(all, boost::locale::generator()(name));
    if (path.empty()) return;
    constexpr uint64_t k_max_bytes = 256 * 1024 * 1024;
    if (file_size(path.c_str()) > k_max_bytes) throw std::runtime_error("a catalog that is too large");
    std::ifstream file(path, std::ios::binary);
    const std::string catalog{std::istreambuf_iterator<char>(file), {}};
    if (!is_sound_catalog(catalog)) throw std::runtime_error("damaged catalog");
}

/// The locale of that name, made when it is wanted for the first time.
const KeptLocale& find_or_make(Locales& all, const std::string& name) VELL_REQUIRES(locales_lock) {
    if (const auto found = all.present.find(name); found != all.present.end()) return *found->second;
    check_catalog(all, name);
    boost::locale::generator generator;
    generator.add_messages_path(all.messages_path);
    generator.add_messages_domain(all.domain);
    const std::locale made = generator(name);
    std::string described = describe(made);
    const auto kept = all.kept.emplace(name, KeptLocale{made, std::move(described)});
    return *all.present.emplace(name, &kept->second).first->second;
}

/// Copying takes a lock of the standard library's, which a fork does not wait for: so it is done under ours.
std::locale copy_of_global() noexcept {
    const ScopedLock lock(locales_lock);
    return {};
}

void choose_backend() {
    auto manager = boost::locale::localization_backend_manager::global();
    manager.select("posix");
    boost::locale::localization_backend_manager::global(manager);
}

}  // namespace
}  // namespace vell

void vl_locale_init(const char* messages_path, const char* default_domain) noexcept {
    try {
        vell::Locales& all = vell::all_locales;
        const vell::ScopedLock lock(vell::locales_lock);
        vell::choose_backend();
        all.messages_path = messages_path != nullptr ? messages_path : "";
        all.domain = default_domain != nullptr ? default_domain : "";
        all.present.clear();
    } catch (const std::exception&) {  // short of memory: what was set before stays
    }
}

void vl_locale_set(const char* name) noexcept {
    try {
        const bool is_named = name != nullptr && *name != '\0';
        const std::string wanted = is_named ? name : std::string(cocoa_user_locale()) + ".UTF-8";
        vell::Locales& all = vell::all_locales;
        const vell::ScopedLock lock(vell::locales_lock);
        const vell::KeptLocale& found = vell::find_or_make(all, wanted);
        std::locale::global(found.locale);
        all.name.store(found.name.c_str(), std::memory_order_release);
    } catch (const std::exception&) {  // a name that Boost refuses: the locale stays as it is
    }
}

const char* vl_locale_get() noexcept {
    try {
        return vell::all_locales.name.load(std::memory_order_acquire);
    } catch (const std::exception&) {
        return "";
    }
}

const char* vl_locale_pgettext(const char* context, const char* id) noexcept {
    if (id == nullptr) return nullptr;
    try {
        using Messages = boost::locale::message_format<char>;
        const std::locale global = vell::copy_of_global();
        const char* translation =
            std::has_facet<Messages>(global) ? std::use_facet<Messages>(global).get(0, context, id) : nullptr;
        return translation != nullptr ? translation : id;
    } catch (const std::exception&) {
        return id;
    }
}
