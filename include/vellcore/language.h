#pragma once
// The interface's language and translated messages.
//
// Messages are looked up in GNU gettext catalogs: "<folder>/<locale>/LC_MESSAGES/<domain>.mo", for "de_AT" also in
// "de". The system needs no locale of that name. Start-up calls vl_lang_init and vl_lang_set(vl_read_language_cfg()); a
// host's settings window offers vl_RNA_lang_enum_properties, and calls vl_lang_set and vl_save_language_cfg with the
// choice.
//
// Any thread may look messages up while another one changes the language. The C locale is never changed: printf and
// strtod go on as before.

#include <cstdint>

#include "export.h"

// --- The languages on offer --------------------------------------------------------------------------------------

/// An item of the menu of languages.
struct vl_lang_enum_item {
    int32_t value;            ///< the language's number
    const char* identifier;   ///< its locale code, "de_DE"; null ends the menu
    int32_t icon;             ///< always 0
    const char* name;         ///< what people call it
    const char* description;  ///< the locale code again; empty for number 0
};
static_assert(sizeof(vl_lang_enum_item) == 40, "hosts know the layout");

/// Finds the locale folder, prepares translation in the domain "gantry" and reads the list of languages. May be called
/// again: it starts over.
///
/// The folder is "locale" in the data folder, else "Contents/Resources/locale" in the code folder. The list is its file
/// "languages", a line for each language:
///
///     # number ":" name ":" locale code [":" anything]
///     0:System:system
///     2:Deutsch:de_DE
///
/// Empty lines and lines that begin with "#" are no languages, nor are lines with fewer than two colons. A number is
/// the digits at a line's start, 0 without any. Number 0 stands for the user's own language. A list that is missing or
/// cannot be read is an empty menu.
/// @return  false when there is no such folder, after the error line "Failed to open 'locale' data path. No language
///          support available.", continued by "Locale path: %s": what was there before stays as it is.
VELL_API bool vl_lang_init() noexcept;

/// vl_lang_init for a program that knows where its locale folder is. It needs no start-up before it.
/// @return  false when `folder` is null or no folder, without a line in the log: what was there before stays as it is.
VELL_API bool vl_lang_init_from(const char* folder) noexcept;

/// Frees the menu and the codes. The language stays.
VELL_API void vl_lang_free() noexcept;
VELL_API void free_locales() noexcept;

/// The menu, ended by an item whose identifier is null.
/// @return  null before vl_lang_init. It and its texts live until the next vl_lang_init or vl_lang_free.
[[nodiscard]] VELL_API vl_lang_enum_item* vl_RNA_lang_enum_properties() noexcept;

/// Chooses the language by its locale code ("de_DE", "sr_RS@latin"). Null and "" choose the user's own, by the
/// environment.
VELL_API void vl_lang_set(const char* code) noexcept;

/// The language's locale code, as vl_locale_get answers it.
[[nodiscard]] VELL_API const char* vl_lang_get() noexcept;

/// Reads the choice from "language.cfg", which is looked for like any settings file (file_find): the first line
/// "language=..." that does not begin with "#"; blanks in front of it are allowed.
/// @return  a buffer of the calling thread, overwritten by its next call; null when there is no such file or line.
/// Kept: a file without such a line stays open until the process ends.
[[nodiscard]] VELL_API const char* vl_read_language_cfg() noexcept;

/// Writes the choice to "language.cfg" in the settings folder, which is made when it is missing.
/// The file is replaced as a whole, after its new content is on the disk: a failure leaves the old choice.
/// @return  1; 0 for a null or empty code, and when the file cannot be written (a full disk).
/// @waits   for the disk to flush the file.
VELL_API int32_t vl_save_language_cfg(const char* code) noexcept;

// --- Messages ----------------------------------------------------------------------------------------------------

/// Translates a message.
///
/// @param context  tells messages apart that read the same; null for none. "" is a context of its own.
/// @param id       the message as it reads untranslated.
/// @return  the translation, or `id` itself when there is none. Null for a null id. A translation stays valid, also
/// when
///          the language changes.
[[nodiscard]] VELL_API const char* vl_pgettext(const char* context, const char* id) noexcept;
[[nodiscard]] VELL_API const char* vl_pgettext(const char* id) noexcept;

/// Always true: every context may be passed to vl_pgettext.
[[nodiscard]] VELL_API bool vl_is_default_context(const char* context) noexcept;

// --- Locales underneath ------------------------------------------------------------------------------------------

/// Sets the folder and the domain (the name of the catalogs) that the next vl_locale_set takes messages from. Null is
/// an empty text.
VELL_API void vl_locale_init(const char* messages_path, const char* default_domain) noexcept;

/// Makes a locale the process's global C++ locale (std::locale::global).
///
/// @param name  with its encoding: "de_DE.UTF-8", "sr_RS.UTF-8@latin". Null and "" mean the user's own.
/// A name that cannot be used, for instance one without an encoding, or whose catalog is damaged, changes nothing and
/// is not reported. Kept: a name that is merely unknown becomes the locale all the same.
VELL_API void vl_locale_set(const char* name) noexcept;

/// The present locale without its encoding: language, "_" and country, "@" and variant, as far as it has them. Empty
/// before the first vl_locale_set. The texts stay valid.
[[nodiscard]] VELL_API const char* vl_locale_get() noexcept;

/// vl_pgettext without its care for null and empty ids. A host that sets the global locale itself is followed.
[[nodiscard]] VELL_API const char* vl_locale_pgettext(const char* context, const char* id) noexcept;

/// Splits a locale name "ll_CC@mod". Every result may be null; each wanted one becomes a new text, to be freed with
/// free, or null.
///
/// | result            | of "pt_BR@x" | text                                                                  |
/// |-------------------|--------------|-----------------------------------------------------------------------|
/// | language          | pt           | up to "_", or up to "@"                                               |
/// | country           | BR           | between them; null without a "_" before the "@"                       |
/// | modifier          | x            | behind the "@"; null without one                                      |
/// | language_country  | pt_BR        | up to the "@"; null without a "_" before it                           |
/// | language_modifier | pt@x         | language, "@" and modifier; null without an "@"                       |
VELL_API void vl_locale_explode(const char* name, char** language, char** country, char** modifier,
                                char** language_country, char** language_modifier) noexcept;
