/*
 * A host in plain C: normalises raw audio, 16 bits, stereo, interleaved, in two passes.
 *
 *   example_host MODULE RATE LUFS IN.raw OUT.raw
 *
 * Linux:    cc -I. examples/example_host.c -o example_host -ldl
 * Windows:  i686-w64-mingw32-gcc -I. examples/example_host.c -o example_host.exe
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "delay_audio/Exports.h"

#ifdef _WIN32
#include <windows.h>
static void* OpenLibrary(const char* path) { return (void*)LoadLibraryA(path); }
static void* AddressOf(void* library, const char* name) {
  return (void*)(uintptr_t)GetProcAddress((HMODULE)library, name);
}
#else
#include <dlfcn.h>
static void* OpenLibrary(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
static void* AddressOf(void* library, const char* name) { return dlsym(library, name); }
#endif

enum { kChannels = 2, kUnitFrames = 4096 };

static void Fail(const char* what) {
  fprintf(stderr, "example_host: %s\n", what);
  exit(1);
}

/* ---- the module's functions, as pointers of their names: declared, found, and called */

#define FUNCTIONS(APPLY)                                         \
  APPLY(xOpen, (void**))                                         \
  APPLY(xClose, (void*))                                         \
  APPLY(xSetParameter, (void*, const char*))                     \
  APPLY(xSetInputInfo, (void*, InfoBuffer*))                     \
  APPLY(xEnumOutputInfo, (void*, InfoBuffer**))                  \
  APPLY(xSetOutputInfo, (void*, InfoBuffer*))                    \
  APPLY(xStartSequenceEx, (void*, void*))                        \
  APPLY(xStartPassEx, (void*, const PassArgument*))              \
  APPLY(xDeliverPcmUnit, (void*, uint32_t, PcmUnit*, uint32_t*)) \
  APPLY(xFetchPcmUnit, (void*, uint32_t, PcmUnit**, uint32_t*))  \
  APPLY(xEndPass, (void*))                                       \
  APPLY(xEndSequence, (void*))
#define DECLARE(name, parameters) static uint32_t(HARVANE_CALL* p_##name) parameters;
FUNCTIONS(DECLARE)

static void FindFunctions(const char* path) {
  void* const library = OpenLibrary(path);
  void* address;
  if (library == NULL) Fail("the module cannot be loaded");
/* The address is copied, for C knows no cast from an object pointer to a function pointer. */
#define FIND(name, parameters)                                    \
  if ((address = AddressOf(library, #name)) == NULL) Fail(#name); \
  memcpy(&p_##name, &address, sizeof address);
  FUNCTIONS(FIND)
}

/* 0 is done; what the module was to take over when it failed stays the host's. */
static void Check(uint32_t code, const char* name) {
  if (code == 0) return;
  fprintf(stderr, "example_host: %s answered %u\n", name, (unsigned)code);
  exit(1);
}
#define CALL(name, ...) Check(p_##name(__VA_ARGS__), #name)

/* ---- the host's own records: the module ends each once, through `release`, before it returns 0.
 * These lie in the caller's frame, so there is nothing to free; others free themselves here. */
static uint32_t HARVANE_CALL Release(void* record) {
  (void)record;
  return 0;
}

/* ---- the job */

static void SetFormat(void* instance, uint32_t rate) {
  struct {
    ChunkHeader header;
    LpcmPayload payload;
  } blob = {{HARVANE_TAG_LPCM, sizeof(LpcmPayload)}, {0, rate, kChannels, 16, 2, {0}}};
  InfoBuffer input = {.release = Release, .data = &blob, .size = sizeof blob};
  InfoBuffer* offer = NULL;
  CALL(xSetInputInfo, instance, &input);
  CALL(xEnumOutputInfo, instance, &offer);
  InfoBuffer output = {.release = Release, .data = offer->data, .size = offer->size};
  CALL(xSetOutputInfo, instance, &output);
  offer->release(offer); /* the module's record: whoever receives it ends it */
}

/* What waits after a unit was taken; its samples lie channel by channel. */
static void WriteOutput(void* instance, FILE* output) {
  uint32_t isMoreWaiting = 0;
  PcmUnit* unit = NULL;
  CALL(xFetchPcmUnit, instance, 0, &unit, &isMoreWaiting);
  for (uint32_t i = 0; i < unit->sampleCount * kChannels; ++i) {
    const uint32_t c = i % kChannels; /* strides count samples, not bytes */
    const int16_t* const sample = &unit->data[c][i / kChannels * unit->stride[c]];
    if (fwrite(sample, sizeof *sample, 1, output) != 1) Fail("the output cannot be written");
  }
  unit->release(unit);
}

static void RunPass(void* instance, uint32_t number, FILE* input, FILE* output) {
  static int16_t buffer[kUnitFrames * kChannels];
  const PassArgument pass = {number};
  size_t frames;
  rewind(input);
  CALL(xStartPassEx, instance, &pass);
  while ((frames = fread(buffer, sizeof *buffer * kChannels, kUnitFrames, input)) > 0) {
    uint32_t isOutputWaiting = 0; /* stays 0 in the first pass of two */
    PcmUnit unit = {.release = Release,
                    .data = {buffer, buffer + 1}, /* the first sample of each channel */
                    .stride = {kChannels, kChannels},
                    .sampleCount = (uint32_t)frames};
    CALL(xDeliverPcmUnit, instance, 0, &unit, &isOutputWaiting);
    if (isOutputWaiting) WriteOutput(instance, output);
  }
  CALL(xEndPass, instance);
}

int main(int argumentCount, char** arguments) {
  char xml[1024];
  void* instance = NULL;
  if (argumentCount != 6) Fail("usage: example_host MODULE RATE LUFS IN.raw OUT.raw");
  FindFunctions(arguments[1]);
  FILE* const input = fopen(arguments[4], "rb");
  FILE* const output = fopen(arguments[5], "wb");
  if (input == NULL || output == NULL) Fail("a file cannot be opened");
  snprintf(xml, sizeof xml,
           "<parameter><audio><numberOfPasses>2</numberOfPasses></audio>"
           "<normalization><normalisationMode>0</normalisationMode><Loudness>%s</Loudness>"
           "<ShortTermLoudness>-20</ShortTermLoudness><MaxTP>-1</MaxTP></normalization>"
           "<logging><frameRate>0</frameRate></logging></parameter>",
           arguments[3]);
  CALL(xOpen, &instance);
  CALL(xSetParameter, instance, xml);
  SetFormat(instance, (uint32_t)strtoul(arguments[2], NULL, 10));
  CALL(xStartSequenceEx, instance, NULL);
  RunPass(instance, 0, input, output);
  RunPass(instance, 1, input, output);
  CALL(xEndSequence, instance);
  CALL(xClose, instance);
  fclose(input);
  if (fclose(output) != 0) Fail("the output cannot be written");
  return 0; /* the end of the process unloads the module, which writes half of the rows that wait */
}
