// libQVTranslate: binds a language to a request thread and turns message ids into text.
#pragma once

#include <string>

// libQVTranslate is a shared library of its own (the web-session library links it); only the
// functions below are exported from it.
#define QVT_API __attribute__((visibility("default")))

// How it works
//   - Catalogs: one UTF-8 file per language, "<install>/middle/lang/<language>.lang", where
//     <install> is found from the running executable the same way as the web-session library
//     does it (".../Server" when the path holds "/Server/", else the parent of the executable's
//     directory). All catalogs are read once, on the first translation, and never reloaded.
//   - Catalog format: "ID=text" lines; the text is everything after the first "=" up to the
//     line end, blanks included (so a text may end in a blank). Lines starting with "#" and
//     lines without "=" are ignored. A line "[domain]" starts the entries of that domain; lines
//     before any such line belong to the domain "default". A later entry replaces an earlier one.
//   - Languages: a thread's language is what qv_tipsTranslate_typeInsert last bound to the
//     thread's key. Language codes are compared in lower case; "en-US" or "en_US" falls back to
//     "en" when there is no catalog of its own.
//   - Default language: "zh". The console's texts were written in Chinese first, so the Chinese
//     catalog is the complete one; an id missing from the thread's language is looked up there.

// The language every lookup falls back to.
#define QVT_DEFAULT_LANGUAGE "zh"

// The key of the calling thread: the decimal text ("%u") of the low 32 bits of pthread_self().
// Callers binding a language for the calling thread should use this value (it is the same text
// as snprintf("%u", (unsigned)pthread_self())).
QVT_API std::string qv_tipsThreadKey();

// Binds `language` (e.g. "en", "zh") to the thread key `threadKey` (see qv_tipsThreadKey). A
// later call for the same key replaces the binding; an empty language removes it, so the
// thread falls back to the default language. Safe to call from any thread.
QVT_API void qv_tipsTranslate_typeInsert(const std::string& threadKey, const std::string& language);

// The text of message `id` in the domain `domain` ("" means "default"; the web-session library
// passes "default") for the language bound to the calling thread, else in the default
// language, else "" for an id that no catalog knows. Never throws; safe from any thread.
QVT_API std::string qv_tipsTranslate2(const std::string& id, const std::string& domain);

// The language bound to the calling thread, "" when none (diagnostics and tests).
QVT_API std::string qv_tipsThreadLanguage();
