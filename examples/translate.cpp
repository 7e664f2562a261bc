// A message in every language that a locale folder offers: the list "languages" and "<language>/LC_MESSAGES/gantry.mo".

#include <vellcore/vellcore.h>

#include <cstdio>

int main(int argc, char** argv) {
    const char* folder = argc > 1 ? argv[1] : EXAMPLE_LOCALE_FOLDER;
    if (!vl_lang_init_from(folder)) {
        std::fprintf(stderr, "there is no locale folder at %s\n", folder);
        return 1;
    }
    for (const vl_lang_enum_item* item = vl_RNA_lang_enum_properties(); item->identifier != nullptr; ++item) {
        vl_lang_set(item->value == 0 ? nullptr : item->identifier);  // number 0 is the user's own language
        // The English text names the message, the context tells messages apart that read the same in English.
        std::printf("%-12s %s: %s\n", vl_lang_get(), item->name, vl_pgettext("system error", "File exists"));
    }
    vl_lang_free();
    return 0;
}
