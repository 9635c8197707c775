/* SPDX-License-Identifier: MIT
 * Uses the library from plain C, found while the program runs: it works, with a message, where none is installed.
 *     cc plain_c.c -o plain_c -ldl
 *
 * A camera object begins with the address of a table of functions. Their order is part of the binary interface: slot 1
 * of vornccd.h is the first entry, and each takes the camera as its first argument.
 */
#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>

struct Camera;

struct Slots {
    const char* (*getName)(struct Camera*);                  /* 1 */
    bool (*open)(struct Camera*);                            /* 2 */
    void (*close)(struct Camera*);                           /* 3 */
    bool (*setParam)(struct Camera*, int param, long value); /* 4 */
    void (*skipped[27])(void);                               /* 5 to 31 */
    unsigned int (*getSerialNumber)(struct Camera*);         /* 32 */
    unsigned int (*getVersionMajor)(struct Camera*);         /* 33 */
    unsigned int (*getVersionMinor)(struct Camera*);         /* 34 */
    const char* (*getLastError)(struct Camera*);             /* 35 */
};

struct Camera {
    const struct Slots* slots;
};

int main(void)
{
    void* library = dlopen("libvornccd.so.1", RTLD_NOW);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    /* POSIX lets a function's address travel through a void pointer; ISO C wants it copied. */
    int (*list)(struct Camera**, int) = NULL;
    void (*destroy)(struct Camera*) = NULL;
    *(void**)&list = dlsym(library, "VornCamera_list");
    *(void**)&destroy = dlsym(library, "VornCamera_destroy");
    if (list == NULL || destroy == NULL) {
        fprintf(stderr, "this libvornccd.so.1 has no plain entry points\n");
        return 1;
    }

    struct Camera* camera = NULL;
    if (list(&camera, 1) != 1) {
        fprintf(stderr, "no camera found\n");
        return 1;
    }
    const bool opened = camera->slots->open(camera);
    if (opened)
        printf("%s: serial number %u, firmware %u.%u\n", camera->slots->getName(camera),
               camera->slots->getSerialNumber(camera), camera->slots->getVersionMajor(camera),
               camera->slots->getVersionMinor(camera));
    else
        fprintf(stderr, "%s: %s\n", camera->slots->getName(camera), camera->slots->getLastError(camera));
    camera->slots->close(camera);
    destroy(camera);
    return opened ? 0 : 1;
}
