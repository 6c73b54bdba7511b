/* Preloaded into the test programs of a cross build that run under
 * qemu-user (crossTesting.cmake), so that the suites run there as they do on
 * the machine itself, with no binfmt registration:
 *
 * - a program the tests start (posix_spawn) that is built for this machine
 *   starts under the emulator, with this library preloaded again; argv[0]
 *   stays what the test gave. The emulator and the target's library prefix
 *   come from PAL2NTSC_QEMU and PAL2NTSC_QEMU_PREFIX.
 * - qemu-user 7.2 passes statx's direct-I/O alignments as zero while it
 *   keeps their mask bit; they are filled in from PAL2NTSC_QEMU_DIO_ALIGN
 *   ("memory:offset", the host's values, which scripts/test-cross reads),
 *   so that the clip store's direct transfers run as on the host.
 *
 * Nothing of the product is built with this file. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__s390x__)
#define THIS_MACHINE EM_S390
#elif defined(__aarch64__)
#define THIS_MACHINE EM_AARCH64
#else
#define THIS_MACHINE EM_NONE
#endif

typedef int SpawnFn(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*, char* const[],
                    char* const[]);
typedef int StatxFn(int, const char*, int, unsigned int, struct statx*);

/* Whether path is an ELF program for this machine (e_machine in the file's
 * own byte order). */
static int builtForThisMachine(const char* path)
{
    unsigned char h[EI_NIDENT + 4];
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    const ssize_t n = read(fd, h, sizeof h);
    close(fd);
    if (n != (ssize_t)sizeof h || memcmp(h, ELFMAG, SELFMAG) != 0)
        return 0;
    const unsigned machine = h[EI_DATA] == ELFDATA2MSB ? (h[18] << 8 | h[19]) : (h[19] << 8 | h[18]);
    return machine == THIS_MACHINE;
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attr,
                char* const argv[], char* const envp[])
{
    SpawnFn* real = (SpawnFn*)dlsym(RTLD_NEXT, "posix_spawn");
    const char* emulator = getenv("PAL2NTSC_QEMU");
    const char* prefix = getenv("PAL2NTSC_QEMU_PREFIX");
    const char* preload = getenv("LD_PRELOAD");
    if (!emulator || !prefix || !builtForThisMachine(path))
        return real(pid, path, actions, attr, argv, envp);

    size_t argc = 0, envc = 0;
    while (argv[argc])
        ++argc;
    while (envp[envc])
        ++envc;
    char** args = calloc(argc + 10, sizeof *args);
    char** env = calloc(envc + 1, sizeof *env);
    char* preloadOption = NULL;
    if (!args || !env || (preload && asprintf(&preloadOption, "LD_PRELOAD=%s", preload) < 0)) {
        free(args);
        free(env);
        return ENOMEM;
    }
    size_t k = 0;
    args[k++] = (char*)emulator;
    args[k++] = (char*)"-L";
    args[k++] = (char*)prefix;
    args[k++] = (char*)"-0";
    args[k++] = argc ? argv[0] : (char*)path;
    if (preloadOption) {
        args[k++] = (char*)"-E";
        args[k++] = preloadOption;
    }
    args[k++] = (char*)path;
    for (size_t i = 1; i < argc; ++i)
        args[k++] = argv[i];
    /* The emulator itself is a host program: the guest library is not for
     * its loader. */
    size_t e = 0;
    for (size_t i = 0; i < envc; ++i)
        if (strncmp(envp[i], "LD_PRELOAD=", 11) != 0)
            env[e++] = envp[i];
    const int rc = real(pid, emulator, actions, attr, args, env);
    free(preloadOption);
    free(args);
    free(env);
    return rc;
}

int statx(int dirfd, const char* path, int flags, unsigned int mask, struct statx* buf)
{
    StatxFn* real = (StatxFn*)dlsym(RTLD_NEXT, "statx");
    const int rc = real(dirfd, path, flags, mask, buf);
    const char* align = getenv("PAL2NTSC_QEMU_DIO_ALIGN");
    unsigned memory = 0, offset = 0;
    if (rc == 0 && align && (buf->stx_mask & STATX_DIOALIGN) && buf->stx_dio_mem_align == 0 &&
        buf->stx_dio_offset_align == 0 && S_ISREG(buf->stx_mode) && sscanf(align, "%u:%u", &memory, &offset) == 2) {
        buf->stx_dio_mem_align = memory;
        buf->stx_dio_offset_align = offset;
    }
    return rc;
}
