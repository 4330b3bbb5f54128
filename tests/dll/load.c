/* SPDX-License-Identifier: Apache-2.0 */
/* load DLL DEF [CORE]: looks up every line of DEF by name and by ordinal, and nothing else may be
 * there. With CORE, that library is loaded first and must have been asked exactly once. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

typedef int (*Add)(const float *, int, int, const float *, int, int, float *, int, int, int, int);

static int failures = 0;

static void expect(int condition, const char *what)
{
    if (!condition) {
        printf("FAILED: %s\n", what);
        ++failures;
    }
}

int main(int count, char **argument)
{
    char line[256], name[128], decorated[130];
    int ordinal, listed = 0, exported = 0, expected = 1;
    const HMODULE core = count > 3 ? LoadLibraryA(argument[3]) : NULL;
    const int *calls = core ? (int *)(void *)GetProcAddress(core, "standInCoreCalls") : NULL;
    expect(count < 4 || (calls && *calls == 0), "the core library loads");

    const HMODULE library = LoadLibraryA(argument[1]);
    if (!library)
        return printf("LoadLibrary: error %lu\n", GetLastError()), 1;
    FILE *definitions = fopen(argument[2], "r");
    expect(definitions != NULL, "the .def opens");
    while (definitions && fgets(line, sizeof line, definitions))
        if (sscanf(line, " %127s @%d", name, &ordinal) == 2) {
            ++listed;
            expect(ordinal == expected++, "ordinals ascend from 1");
            const FARPROC found = GetProcAddress(library, name);
            expect(found && found == GetProcAddress(library, (LPCSTR)(size_t)ordinal), name);
            decorated[0] = '_';
            strcpy(decorated + 1, name);
            expect(!GetProcAddress(library, decorated), decorated);
        }
    for (int o = 0; o < 2000; ++o)
        exported += GetProcAddress(library, (LPCSTR)(size_t)o) != NULL;
    expect(listed == 874 && exported == listed, "874 exports, as many as the .def lists");

    const Add add = (Add)(void *)GetProcAddress(library, "zonmAdd_mm_32f");
    float a = 1, b = 2, sum = 0;
    expect(add && add(&a, 4, 4, &b, 4, 4, &sum, 4, 4, 1, 1) == 0 && sum == 3, "1 + 2");
    const HMODULE again = LoadLibraryA(argument[1]);
    expect(again == library, "it is loaded once");
    expect(!calls || *calls == 1, "the core library is asked once");
    FreeLibrary(again);
    FreeLibrary(library);
    expect(!GetModuleHandleA(argument[1]), "it is unloaded");
    printf("%d bits, %d exports, core library %s: %s\n", (int)sizeof(void *) * 8, exported,
           calls ? "asked once" : "not loaded", failures ? "FAILED" : "passed");
    return failures != 0;
}
