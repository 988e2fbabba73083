/* A qemu user-mode TCG plugin that counts the guest instructions executed,
 * per guest thread (vCPU) and in all. At exit it writes one line
 *   insns <total> threads <n> [<count of thread 0> ...]
 * to the file named by the argument out=FILE, or to stderr.
 *
 * The few entry points of the plugin interface it needs are declared here,
 * so that it builds without qemu's development files (interface version 1,
 * as loaded by qemu-user 7.2 with -plugin FILE,out=...). */
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#define PLUGIN_EXPORT __attribute__((visibility("default")))

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
typedef struct qemu_info_t qemu_info_t; /* never read */
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS, QEMU_PLUGIN_CB_R_REGS, QEMU_PLUGIN_CB_RW_REGS };
typedef void (*qemu_plugin_vcpu_udata_cb_t)(unsigned int vcpu_index, void *userdata);
typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb *tb);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void *userdata);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb *tb, qemu_plugin_vcpu_udata_cb_t cb,
                                          enum qemu_plugin_cb_flags flags, void *userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void *userdata);

PLUGIN_EXPORT int qemu_plugin_version = 1;

enum { kMaxThreads = 64 };
static _Atomic uint64_t g_count[kMaxThreads]; /* threads beyond the last share it */
static unsigned g_threads;
static char g_out[4096];

/* A translated block ran on vcpu: add its instruction count. */
static void on_exec(unsigned int vcpu, void *udata) {
  const unsigned slot = vcpu < kMaxThreads ? vcpu : kMaxThreads - 1;
  atomic_fetch_add_explicit(&g_count[slot], (uint64_t)(uintptr_t)udata, memory_order_relaxed);
  if (slot + 1 > g_threads) g_threads = slot + 1; /* only grows; a stale read is harmless */
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
  (void)id;
  const size_t n = qemu_plugin_tb_n_insns(tb);
  qemu_plugin_register_vcpu_tb_exec_cb(tb, on_exec, QEMU_PLUGIN_CB_NO_REGS, (void *)(uintptr_t)n);
}

static void on_exit(qemu_plugin_id_t id, void *udata) {
  (void)id;
  (void)udata;
  FILE *f = g_out[0] ? fopen(g_out, "w") : stderr;
  if (!f) f = stderr;
  uint64_t total = 0;
  for (unsigned i = 0; i < g_threads; ++i) total += atomic_load(&g_count[i]);
  fprintf(f, "insns %llu threads %u", (unsigned long long)total, g_threads);
  for (unsigned i = 0; i < g_threads; ++i) fprintf(f, " %llu", (unsigned long long)atomic_load(&g_count[i]));
  fputc('\n', f);
  if (f != stderr) fclose(f);
}

PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info, int argc,
                                      char **argv) {
  (void)info;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "out=", 4) == 0) {
      strncpy(g_out, argv[i] + 4, sizeof g_out - 1);
    } else {
      fprintf(stderr, "insn_count_plugin: unknown argument '%s' (expected out=FILE)\n", argv[i]);
      return -1;
    }
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
  qemu_plugin_register_atexit_cb(id, on_exit, NULL);
  return 0;
}
