/* What the agent and the kernel driver say to each other: control codes, buffer layouts and limits.
 *
 * Plain C without the system's headers, since the stand-in drivers include it too. Numbers are
 * little-endian, texts UTF-16LE; docs/file-formats.md describes the same with words.
 */
#ifndef KORVANE_DRIVER_DRIVER_PROTOCOL_H
#define KORVANE_DRIVER_DRIVER_PROTOCOL_H

#include <stdint.h>

#define KAVIPS_LOAD_POLICY 0x80008001u
#define KAVIPS_ROLL_PROFILE_LOG 0x80008004u
#define KAVIPS_ROLL_LOG 0x80008008u
#define KAVIPS_USE_BUILTIN 0x80008014u
#define KAVIPS_PSET_SNAPSHOT 0x8000400eu
#define KAVIPS_QUERY_POLICY 0x80004018u
#define KAVIPS_QUERY_REFUSAL 0x80004024u
#define KAVIPS_PROCESS_SNAPSHOT 0x8000402au

/* The answer to KAVIPS_QUERY_POLICY. */
#define KAVIPS_POLICY_RECORD_BYTES 1028u
#define KAVIPS_POLICY_NAME_OFFSET 4u
#define KAVIPS_POLICY_NAME_BYTES 256u
#define KAVIPS_POLICY_VERSION_OFFSET 260u
#define KAVIPS_POLICY_VERSION_BYTES 256u
#define KAVIPS_POLICY_ID_OFFSET 516u
#define KAVIPS_POLICY_ID_BYTES 512u

/* The answer to KAVIPS_QUERY_REFUSAL: a number, then the text. */
#define KAVIPS_REFUSAL_BYTES 516u
#define KAVIPS_REFUSAL_TEXT_OFFSET 4u
#define KAVIPS_REFUSAL_TEXT_BYTES 512u

#ifdef __cplusplus
typedef char16_t KavipsUnit;
#else
typedef uint_least16_t KavipsUnit;
#endif

/* One process; a record with recordBytes 0 ends the list. */
typedef struct KorvaneProcessSnapshot {
  uint32_t processId;
  uint32_t parentId;
  uint32_t processSet; /* number of its process set, 0: none */
  uint32_t recordBytes;
  KavipsUnit imagePath[260];
  KavipsUnit processSetName[62];
} KorvaneProcessSnapshot;

/* One process set of the policy in force; a record with number 0 ends the list. */
typedef struct KorvanePsetSnapshot {
  uint32_t number; /* from 1 */
  uint32_t rules;
  KavipsUnit name[64];
} KorvanePsetSnapshot;

#endif
