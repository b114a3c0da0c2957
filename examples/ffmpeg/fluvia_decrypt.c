#include "fluvia_decrypt.h"

#include <libavutil/aes.h>
#include <libavutil/common.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <string.h>

enum { kBlock = 16, kPiece = 32768, kKeyBits = 128 };

struct FluviaDecrypt {
  struct AVAES* aes;
  uint8_t iv[kBlock];
  uint8_t secret[kPiece]; /* encrypted bytes from the source */
  int secretSize;
  uint8_t open[kPiece];
  int openAt;
  int openSize;
  int ended; /* the last block, which has the padding, is decrypted */
};

static int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

static int parseBlock(const char* text, uint8_t block[kBlock]) {
  if (strlen(text) != 2 * (size_t)kBlock) return 0;
  for (int i = 0; i < kBlock; ++i) {
    const int high = hexDigit(text[2 * i]);
    const int low = hexDigit(text[2 * i + 1]);
    if (high < 0 || low < 0) return 0;
    block[i] = (uint8_t)(high * 16 + low);
  }
  return 1;
}

FluviaDecrypt* fluvia_decrypt_new(const char* key, const char* iv) {
  uint8_t keyBytes[kBlock];
  FluviaDecrypt* made = av_mallocz(sizeof *made);
  if (made == NULL) return NULL;
  made->aes = av_aes_alloc();
  if (made->aes == NULL || !parseBlock(key, keyBytes) || !parseBlock(iv, made->iv) ||
      av_aes_init(made->aes, keyBytes, kKeyBits, 1) < 0) {
    fluvia_decrypt_free(&made);
  }
  return made;
}

/* Removes the padding of the last block: each of its bytes holds its length. */
static int cutPadding(FluviaDecrypt* decrypt) {
  const int padding = decrypt->open[decrypt->openSize - 1];
  const int right = padding >= 1 && padding <= kBlock;
  decrypt->openSize = right ? decrypt->openSize - padding : 0;
  return right ? 0 : AVERROR_INVALIDDATA;
}

/*
 * Decrypts the whole blocks that have arrived; the last one waits until it is known to be the last.
 */
static int openBlocks(FluviaDecrypt* decrypt) {
  int blocks = decrypt->secretSize / kBlock;
  const int rest = decrypt->secretSize % kBlock;
  if (decrypt->ended && rest != 0) return AVERROR_INVALIDDATA;
  if (!decrypt->ended && rest == 0 && blocks > 0) --blocks;
  if (blocks == 0) return 0;
  av_aes_crypt(decrypt->aes, decrypt->open, decrypt->secret, blocks, decrypt->iv, 1);
  const int used = blocks * kBlock;
  decrypt->openAt = 0;
  decrypt->openSize = used;
  decrypt->secretSize -= used;
  memmove(decrypt->secret, decrypt->secret + used, (size_t)decrypt->secretSize);
  return decrypt->ended ? cutPadding(decrypt) : 0;
}

int fluvia_decrypt_read(FluviaDecrypt* decrypt, FluviaDecryptSource source, void* data,
                        uint8_t* buffer, int size) {
  while (decrypt->openAt == decrypt->openSize) {
    if (decrypt->ended) return AVERROR_EOF;
    uint8_t* room = decrypt->secret + decrypt->secretSize;
    const int got = source(data, room, kPiece - decrypt->secretSize);
    if (got < 0 && got != AVERROR_EOF) return got;
    if (got > 0) decrypt->secretSize += got;
    if (got <= 0) decrypt->ended = 1;
    const int result = openBlocks(decrypt);
    if (result < 0) return result;
  }
  const int given = FFMIN(size, decrypt->openSize - decrypt->openAt);
  memcpy(buffer, decrypt->open + decrypt->openAt, (size_t)given);
  decrypt->openAt += given;
  return given;
}

void fluvia_decrypt_free(FluviaDecrypt** decrypt) {
  if (*decrypt == NULL) return;
  av_freep(&(*decrypt)->aes);
  av_freep(decrypt);
}
