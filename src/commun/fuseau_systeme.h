#pragma once

namespace tavi {

// Makes the process's local time the system's time zone (/etc/localtime, which only root
// changes), whatever TZ or TZDIR its environment carries: the child sets those in their own
// session, and a zone of their choosing would start a new day and its count at will. Qt reads
// the same variables, so this goes first thing in main(), before Qt and before any thread
// (setenv and tzset are not thread-safe).
void suivreFuseauSysteme();

} // namespace tavi
