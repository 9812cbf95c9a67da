/* Lists the volumes of an extension file and, for each disk below them, the drivers that ran it.
 *
 *   list_volumes FILE
 *
 * Build: cc -std=c11 list_volumes.c -lvxrcore */
#include <stdio.h>
#include <stdlib.h>

#include "vxrcore/bmext.h"
#include "vxrcore/vxrcore.h"

/* The file's bytes, exactly VXR_EXT_FILE_SIZE of them; NULL after a message. To be freed. */
static uint8_t *ReadImage(const char *path) {
  /* One byte more than a file has, to tell one that is longer. */
  uint8_t *image = malloc(VXR_EXT_FILE_SIZE + 1);
  FILE *file = fopen(path, "rb");
  const size_t size = image != NULL && file != NULL ? fread(image, 1, VXR_EXT_FILE_SIZE + 1, file) : 0;
  if (file != NULL) fclose(file);
  if (size == VXR_EXT_FILE_SIZE) return image;
  fprintf(stderr, "%s: not a readable file of %u bytes\n", path, VXR_EXT_FILE_SIZE);
  free(image);
  return NULL;
}

/* A number of 4 bytes; 0 when there is no answer. */
static uint32_t AskNumber(const uint8_t *image, uint32_t code, uint32_t volume, const int32_t *disk) {
  VXR_LE32 number = {{0}};
  uint32_t size = sizeof number;
  if (!VXRExt_QueryData(VXREQ_Volume, code, number.b, &size, disk, volume, image)) return 0;
  return VxrGet32(number);
}

/* A text with a terminator, in the code page of the recorded machine; NULL when there is no answer. To be freed. */
static char *AskText(const uint8_t *image, uint32_t code, uint32_t volume, const int32_t *disk) {
  /* The size first: without a buffer, and with more room than any answer needs. */
  uint32_t size = UINT32_MAX;
  if (!VXRExt_QueryData(VXREQ_Volume, code, NULL, &size, disk, volume, image)) return NULL;
  char *text = calloc(size + 1, 1); /* answers bring no terminator */
  if (text != NULL) VXRExt_QueryData(VXREQ_Volume, code, (uint8_t *)text, &size, disk, volume, image);
  return text;
}

static void PrintText(const char *label, const uint8_t *image, uint32_t code, uint32_t volume, const int32_t *disk) {
  char *text = AskText(image, code, volume, disk);
  if (text != NULL && text[0] != '\0') printf("%s%s", label, text);
  free(text);
}

static void PrintDriver(const char *whose, uint32_t driver, const uint8_t *image, uint32_t volume, int32_t disk) {
  char *instance = AskText(image, driver | VXREQV_DiskInstanceId, volume, &disk);
  if (instance != NULL && instance[0] != '\0') {
    printf("    %s: %s\n     ", whose, instance);
    PrintText(" service ", image, driver | VXREQV_DiskSrvName, volume, &disk);
    PrintText(" version ", image, driver | VXREQV_DiskImgFileVersion, volume, &disk);
    PrintText(" from ", image, driver | VXREQV_DiskInfFileName, volume, &disk);
    printf("\n");
  }
  free(instance);
}

static void PrintVolume(const uint8_t *image, uint32_t volume) {
  printf("Volume %u: ", volume);
  PrintText("", image, VXREQV_MntPnt, volume, NULL);
  PrintText(" ", image, VXREQV_FSName, volume, NULL);
  PrintText(" ", image, VXREQV_Label, volume, NULL);
  printf(volume == AskNumber(image, VXREQV_SystVolInd, 0, NULL) ? " (system)\n" : "\n");
  /* A count may be any number: what the file has no room for gets no answer. */
  const uint32_t disks = AskNumber(image, VXREQV_DiskCount, volume, NULL);
  for (int32_t disk = 0; disk < VXR_MAX_VOLUME_DISKS && (uint32_t)disk < disks; ++disk) {
    printf("  on disk %u\n", AskNumber(image, VXREQV_DiskDriver | VXREQV_DiskNumber, volume, &disk));
    PrintDriver("disk", VXREQV_DiskDriver, image, volume, disk);
    PrintDriver("controller", VXREQV_CtrlDriver, image, volume, disk);
    PrintDriver("bus extender", VXREQV_BusEDriver, image, volume, disk);
  }
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: list_volumes FILE\n");
    return 2;
  }
  uint8_t *image = ReadImage(argv[1]);
  if (image == NULL) return 1;
  VXR_LE32 count;
  uint32_t size = sizeof count;
  if (!VXRExt_QueryData(VXREQ_Volume, VXREQV_VolCount, count.b, &size, NULL, 0, image)) {
    fprintf(stderr, "%s: not an extension file of version %u\n", argv[1], VXR_EXT_VERSION);
    free(image);
    return 1;
  }
  for (uint32_t volume = 0; volume < VXR_MAX_VOLUMES && volume < VxrGet32(count); ++volume) PrintVolume(image, volume);
  free(image);
  return 0;
}
