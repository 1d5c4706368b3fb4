/* Logging set-up of the radar unit: one line per message on standard output. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Installs the process-wide GLib log handler. Lines read "<program>: <LEVEL>: <message>";
 * the service's error level (256) prints as ERROR. Debug lines print only when
 * G_MESSAGES_DEBUG asks for them. */
void zk_log_stdout(int argc, char **argv);

#ifdef __cplusplus
}
#endif
