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
#else
#include <dlfcn.h>
#endif

enum { kChannels = 2, kUnitFrames = 4096 };

static void Fail(const char* what) {
  fprintf(stderr, "example_host: %s\n", what);
  exit(1);
}

/* ---- the module's functions, by their names */

static void* OpenLibrary(const char* path) {
#ifdef _WIN32
  return (void*)LoadLibraryA(path);
#else
  return dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
}

/* Copies the address into a function pointer, of which C knows no cast from void*. */
static void Find(void* library, const char* name, void* function) {
#ifdef _WIN32
  FARPROC address = GetProcAddress((HMODULE)library, name);
#else
  void* address = dlsym(library, name);
#endif
  if (address == NULL) Fail(name);
  memcpy(function, &address, sizeof address);
}

static uint32_t(HARVANE_CALL* open_)(void**);
static uint32_t(HARVANE_CALL* close_)(void*);
static uint32_t(HARVANE_CALL* setParameter)(void*, const char*);
static uint32_t(HARVANE_CALL* setInputInfo)(void*, InfoBuffer*);
static uint32_t(HARVANE_CALL* enumOutputInfo)(void*, InfoBuffer**);
static uint32_t(HARVANE_CALL* setOutputInfo)(void*, InfoBuffer*);
static uint32_t(HARVANE_CALL* startSequence)(void*, void*);
static uint32_t(HARVANE_CALL* startPass)(void*, const PassArgument*);
static uint32_t(HARVANE_CALL* deliver)(void*, uint32_t, PcmUnit*, uint32_t*);
static uint32_t(HARVANE_CALL* fetch)(void*, uint32_t, PcmUnit**, uint32_t*);
static uint32_t(HARVANE_CALL* endPass)(void*);
static uint32_t(HARVANE_CALL* endSequence)(void*);

/* 0 is done; what the module took over when it failed stays the host's. */
static void Check(uint32_t code, const char* call) {
  if (code == 0) return;
  fprintf(stderr, "example_host: %s answered %u\n", call, (unsigned)code);
  exit(1);
}

/* ---- the host's own records: made here, ended by the module through `release` */

static uint32_t HARVANE_CALL FreeInfo(void* record) {
  free(((InfoBuffer*)record)->data);
  free(record);
  return 0;
}

static uint32_t HARVANE_CALL FreeUnit(void* record) {
  free(((PcmUnit*)record)->data[0]); /* all channels lie in one block */
  free(record);
  return 0;
}

static InfoBuffer* MakeInfo(const void* bytes, uint32_t size) {
  InfoBuffer* info = calloc(1, sizeof *info);
  if (info == NULL || (info->data = malloc(size)) == NULL) Fail("memory exhausted");
  memcpy(info->data, bytes, size);
  info->size = size;
  info->release = FreeInfo;
  return info;
}

static PcmUnit* MakeUnit(const int16_t* interleaved, uint32_t frames) {
  PcmUnit* unit = calloc(1, sizeof *unit);
  size_t size = (size_t)frames * kChannels * sizeof *interleaved;
  if (unit == NULL || (unit->data[0] = malloc(size)) == NULL) Fail("memory exhausted");
  memcpy(unit->data[0], interleaved, size);
  for (uint32_t c = 0; c < kChannels; ++c) {
    unit->data[c] = unit->data[0] + c;
    unit->stride[c] = kChannels; /* in samples, not bytes */
  }
  unit->sampleCount = frames;
  unit->release = FreeUnit;
  return unit;
}

/* ---- the job */

static void SetFormat(void* instance, uint32_t rate) {
  struct {
    ChunkHeader header;
    LpcmPayload payload;
  } blob = {{HARVANE_TAG_LPCM, sizeof(LpcmPayload)}, {0, rate, kChannels, 16, 2, {0}}};
  InfoBuffer* offer = NULL;
  Check(setInputInfo(instance, MakeInfo(&blob, sizeof blob)), "xSetInputInfo");
  Check(enumOutputInfo(instance, &offer), "xEnumOutputInfo");
  Check(setOutputInfo(instance, MakeInfo(offer->data, offer->size)), "xSetOutputInfo");
  offer->release(offer); /* the module's record: whoever receives it ends it */
}

static void WriteUnit(const PcmUnit* unit, FILE* output) {
  for (uint32_t s = 0; s < unit->sampleCount; ++s) {
    for (uint32_t c = 0; c < kChannels; ++c) {
      if (fwrite(&unit->data[c][s * unit->stride[c]], sizeof(int16_t), 1, output) != 1) {
        Fail("the output cannot be written");
      }
    }
  }
}

static void RunPass(void* instance, uint32_t number, FILE* input, FILE* output) {
  static int16_t buffer[kUnitFrames * kChannels];
  const PassArgument pass = {number};
  size_t frames;
  rewind(input);
  Check(startPass(instance, &pass), "xStartPassEx");
  while ((frames = fread(buffer, sizeof *buffer * kChannels, kUnitFrames, input)) > 0) {
    uint32_t isOutputWaiting = 0;
    Check(deliver(instance, 0, MakeUnit(buffer, (uint32_t)frames), &isOutputWaiting),
          "xDeliverPcmUnit");
    if (isOutputWaiting) { /* never in the first pass of two */
      PcmUnit* unit = NULL;
      Check(fetch(instance, 0, &unit, &isOutputWaiting), "xFetchPcmUnit");
      WriteUnit(unit, output);
      unit->release(unit);
    }
  }
  Check(endPass(instance), "xEndPass");
}

int main(int argumentCount, char** arguments) {
  char xml[1024];
  void* instance = NULL;
  if (argumentCount != 6) Fail("usage: example_host MODULE RATE LUFS IN.raw OUT.raw");
  void* const library = OpenLibrary(arguments[1]);
  if (library == NULL) Fail("the module cannot be loaded");
  Find(library, "xOpen", &open_);
  Find(library, "xClose", &close_);
  Find(library, "xSetParameter", &setParameter);
  Find(library, "xSetInputInfo", &setInputInfo);
  Find(library, "xEnumOutputInfo", &enumOutputInfo);
  Find(library, "xSetOutputInfo", &setOutputInfo);
  Find(library, "xStartSequenceEx", &startSequence);
  Find(library, "xStartPassEx", &startPass);
  Find(library, "xDeliverPcmUnit", &deliver);
  Find(library, "xFetchPcmUnit", &fetch);
  Find(library, "xEndPass", &endPass);
  Find(library, "xEndSequence", &endSequence);
  FILE* const input = fopen(arguments[4], "rb");
  FILE* const output = fopen(arguments[5], "wb");
  if (input == NULL || output == NULL) Fail("a file cannot be opened");

  snprintf(xml, sizeof xml,
           "<parameter><audio><numberOfPasses>2</numberOfPasses></audio>"
           "<normalization><normalisationMode>0</normalisationMode><Loudness>%s</Loudness>"
           "<ShortTermLoudness>-20</ShortTermLoudness><MaxTP>-1</MaxTP></normalization>"
           "<logging><frameRate>0</frameRate></logging></parameter>",
           arguments[3]);
  Check(open_(&instance), "xOpen");
  Check(setParameter(instance, xml), "xSetParameter");
  SetFormat(instance, (uint32_t)strtoul(arguments[2], NULL, 10));
  Check(startSequence(instance, NULL), "xStartSequenceEx");
  RunPass(instance, 0, input, output);
  RunPass(instance, 1, input, output);
  Check(endSequence(instance), "xEndSequence");
  Check(close_(instance), "xClose");
  fclose(input);
  if (fclose(output) != 0) Fail("the output cannot be written");
  return 0; /* the end of the process unloads the module, which writes half of the rows that wait */
}
