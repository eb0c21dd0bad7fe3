/*
 * pk.h -- the public interface of the MeldSolids kernel.
 *
 * Plain C (it compiles as C and as C++): integer tags, token constants, option
 * records whose first member is o_t_version, PK_..._o_m() initialisers that set
 * a record to the kernel's defaults, and the functions. Nothing of the
 * implementation (OpenCASCADE, C++ types, exceptions) appears here.
 */
#ifndef MELD_PK_H
#define MELD_PK_H

#include <stddef.h> /* size_t */

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * Basic types
 * ------------------------------------------------------------------------- */

typedef int PK_ERROR_code_t; /* 0: success */
typedef int PK_LOGICAL_t;
#define PK_LOGICAL_false 0
#define PK_LOGICAL_true 1

#define PK_ERROR_no_errors 0

/* ---------------------------------------------------------------------------
 * The frustrum: the application's file, memory and graphics services.
 *
 * Every slot reports through its last argument, ifail (0: no error). The
 * record's 27 slots are in the kernel's fixed order; slots the application does
 * not provide are null.
 * ------------------------------------------------------------------------- */

/* ifail codes the frustrum answers with. */
#define PK_FR_no_errors 0
#define PK_FR_bad_name 1
#define PK_FR_not_found 2
#define PK_FR_could_not_open 3
#define PK_FR_end_of_file 4
#define PK_FR_open_fail 10
#define PK_FR_write_fail 12
#define PK_FR_read_fail 13
#define PK_FR_close_fail 14
#define PK_FR_memory_full 15
#define PK_FR_unspecified 99

/* Guise: what kind of file a stream holds. */
#define PK_FR_guise_rollback 1
#define PK_FR_guise_snapshot 2
#define PK_FR_guise_journal 3
#define PK_FR_guise_transmit 4
#define PK_FR_guise_transmit_noname 5
#define PK_FR_guise_schema 6
#define PK_FR_guise_licence 7
#define PK_FR_guise_transmit_partition 8
#define PK_FR_guise_transmit_deltas 9
#define PK_FR_guise_debug_report 10

/* Format of a stream. */
#define PK_FR_format_binary 1
#define PK_FR_format_text 2

/* ffclos actions. */
#define PK_FR_close_normal 1
#define PK_FR_close_abandon 2

typedef void (*PK_FSTART_f_t)(int* ifail);
typedef void (*PK_FABORT_f_t)(int* ifail);
typedef void (*PK_FSTOP_f_t)(int* ifail);
typedef void (*PK_FMALLO_f_t)(const int* nbytes, char** memory, int* ifail);
typedef void (*PK_FMFREE_f_t)(const int* nbytes, char** memory, int* ifail);
/* Graphics output: segment open/output/close take seven arguments before ifail,
 * pixel output/open/close four. */
typedef void (*PK_GOSGMT_f_t)(const int* segtyp, const int* ntags, const int* tags,
                              const int* ngeom, const double* geom, const int* nlntp,
                              const int* lntp, int* ifail);
typedef void (*PK_GOOPSG_f_t)(const int* segtyp, const int* ntags, const int* tags,
                              const int* ngeom, const double* geom, const int* nlntp,
                              const int* lntp, int* ifail);
typedef void (*PK_GOCLSG_f_t)(const int* segtyp, const int* ntags, const int* tags,
                              const int* ngeom, const double* geom, const int* nlntp,
                              const int* lntp, int* ifail);
typedef void (*PK_GOPIXL_f_t)(const int* nreals, const double* rvals, const int* nints,
                              const int* ivals, int* ifail);
typedef void (*PK_GOOPPX_f_t)(const int* nreals, const double* rvals, const int* nints,
                              const int* ivals, int* ifail);
typedef void (*PK_GOCLPX_f_t)(const int* nreals, const double* rvals, const int* nints,
                              const int* ivals, int* ifail);
typedef void (*PK_FFOPRD_f_t)(const int* guise, const int* format, const char* name,
                              const int* namlen, const int* skiphd, int* strid, int* ifail);
typedef void (*PK_FFOPWR_f_t)(const int* guise, const int* format, const char* name,
                              const int* namlen, const char* pd2, const int* pd2len,
                              int* strid, int* ifail);
typedef void (*PK_FFCLOS_f_t)(const int* guise, const int* strid, const int* action,
                              int* ifail);
typedef void (*PK_FFREAD_f_t)(const int* guise, const int* strid, const int* nmax,
                              char* buffer, int* nactual, int* ifail);
typedef void (*PK_FFWRIT_f_t)(const int* guise, const int* strid, const int* nchars,
                              const char* buffer, int* ifail);
typedef void (*PK_FFOPRB_f_t)(const int* guise, const int* minsize, const int* maxsize,
                              int* actsize, int* strid, int* ifail);
typedef void (*PK_FFSEEK_f_t)(const int* guise, const int* strid, const int* position,
                              int* ifail);
typedef void (*PK_FFTELL_f_t)(const int* guise, const int* strid, int* position,
                              int* ifail);
/* Foreign geometry and user-field conversion slots: not used by this kernel;
 * applications leave them null. */
typedef void (*PK_FOREIGN_f_t)(void);

typedef struct PK_SESSION_frustrum_s {
  PK_FSTART_f_t fstart;
  PK_FABORT_f_t fabort;
  PK_FSTOP_f_t fstop;
  PK_FMALLO_f_t fmallo;
  PK_FMFREE_f_t fmfree;
  PK_GOSGMT_f_t gosgmt;
  PK_GOOPSG_f_t goopsg;
  PK_GOCLSG_f_t goclsg;
  PK_GOPIXL_f_t gopixl;
  PK_GOOPPX_f_t gooppx;
  PK_GOCLPX_f_t goclpx;
  PK_FFOPRD_f_t ffoprd;
  PK_FFOPWR_f_t ffopwr;
  PK_FFCLOS_f_t ffclos;
  PK_FFREAD_f_t ffread;
  PK_FFWRIT_f_t ffwrit;
  PK_FFOPRB_f_t ffoprb;
  PK_FFSEEK_f_t ffseek;
  PK_FFTELL_f_t fftell;
  PK_FOREIGN_f_t fgcrcu;
  PK_FOREIGN_f_t fgcrsu;
  PK_FOREIGN_f_t fgevcu;
  PK_FOREIGN_f_t fgevsu;
  PK_FOREIGN_f_t fgprcu;
  PK_FOREIGN_f_t fgprsu;
  PK_FOREIGN_f_t ucoprd;
  PK_FOREIGN_f_t ucopwr;
} PK_SESSION_frustrum_t;

/* Sets every slot to null. */
#define PK_SESSION_frustrum_o_m(f)                                                   \
  ((f).fstart = 0, (f).fabort = 0, (f).fstop = 0, (f).fmallo = 0, (f).fmfree = 0,    \
   (f).gosgmt = 0, (f).goopsg = 0, (f).goclsg = 0, (f).gopixl = 0, (f).gooppx = 0,   \
   (f).goclpx = 0, (f).ffoprd = 0, (f).ffopwr = 0, (f).ffclos = 0, (f).ffread = 0,   \
   (f).ffwrit = 0, (f).ffoprb = 0, (f).ffseek = 0, (f).fftell = 0, (f).fgcrcu = 0,   \
   (f).fgcrsu = 0, (f).fgevcu = 0, (f).fgevsu = 0, (f).fgprcu = 0, (f).fgprsu = 0,   \
   (f).ucoprd = 0, (f).ucopwr = 0)

/* ---------------------------------------------------------------------------
 * Tags, classes and small types
 *
 * Every entity is a 32-bit tag; 0 (PK_ENTITY_null) means none. Tags are never
 * reused within a session.
 * ------------------------------------------------------------------------- */

typedef int PK_ENTITY_t;
typedef int PK_PARTITION_t;
typedef int PK_PMARK_t;
typedef int PK_MARK_t;
typedef int PK_PART_t;
typedef int PK_ASSEMBLY_t;
typedef int PK_BODY_t;
typedef int PK_INSTANCE_t;
typedef int PK_TRANSF_t;
typedef int PK_TOPOL_t;
typedef int PK_REGION_t;
typedef int PK_SHELL_t;
typedef int PK_FACE_t;
typedef int PK_LOOP_t;
typedef int PK_EDGE_t;
typedef int PK_VERTEX_t;
typedef int PK_ATTDEF_t;
typedef int PK_ATTRIB_t;
typedef int PK_DELTA_t;   /* a delta's key in the application's delta store */
typedef int PK_CLASS_t;
typedef int PK_BODY_type_t;
typedef int PK_SHELL_sign_t;
typedef int PK_boolean_function_t;
typedef int PK_boolean_result_t;
typedef int PK_transmit_format_t;
typedef int PK_transmit_meshes_t;
typedef int PK_thread_t;
typedef int PK_FACE_heal_t;
typedef int PK_ATTRIB_field_t;
/* UTF-16 code unit; layout-compatible with char16_t. */
typedef unsigned short PK_UCHAR_t;

#define PK_ENTITY_null 0

/* Classes (PK_ENTITY_ask_class). */
#define PK_CLASS_partition 5001
#define PK_CLASS_pmark 5002
#define PK_CLASS_mark 5003
#define PK_CLASS_body 5006
#define PK_CLASS_assembly 5008
#define PK_CLASS_instance 5009
#define PK_CLASS_transf 5010
#define PK_CLASS_region 5011
#define PK_CLASS_shell 5012
#define PK_CLASS_face 5013
#define PK_CLASS_loop 5014
#define PK_CLASS_edge 5015
#define PK_CLASS_fin 5016
#define PK_CLASS_vertex 5017
#define PK_CLASS_attdef 5020
#define PK_CLASS_attrib 5021

/* Body types (PK_BODY_ask_type). */
#define PK_BODY_type_solid_c 5601
#define PK_BODY_type_sheet_c 5602
#define PK_BODY_type_wire_c 5603
#define PK_BODY_type_acorn_c 5604
#define PK_BODY_type_general_c 5605
#define PK_BODY_type_empty_c 5606

/* Shell signs (PK_SHELL_find_sign): positive means the region lies inside. */
#define PK_SHELL_sign_positive_c 3550
#define PK_SHELL_sign_negative_c 3551
#define PK_SHELL_sign_mixed_c 3552

/* Boolean functions and results. */
#define PK_boolean_intersect_c 15901
#define PK_boolean_subtract_c 15902
#define PK_boolean_unite_c 15903

#define PK_boolean_result_success_c 21650
#define PK_boolean_result_no_clash_c 21651
#define PK_boolean_result_no_effect_c 21652
#define PK_boolean_result_failed_c 21653
#define PK_boolean_result_not_solid_c 21654
#define PK_boolean_result_is_tool_c 21655
#define PK_boolean_result_imprint_c 21656

/* Transmit formats. */
#define PK_transmit_format_text_c 18220
#define PK_transmit_format_binary_c 18221
#define PK_transmit_format_neutral_c 18222
#define PK_transmit_format_typed_binary_c 18223

/* What PK_PART_transmit does with meshes (this kernel has none to write). */
#define PK_transmit_meshes_separate_c 26130
#define PK_transmit_meshes_no_c 26131

/* Multi-processing thread formats (PK_SESSION_smp_o_t). */
#define PK_thread_disabled_c 21010
#define PK_thread_per_processor_c 21011
#define PK_thread_absolute_c 21012

/* PK_FACE_delete: how the wound left by deleted faces is treated. */
#define PK_FACE_heal_yes_c 18080
#define PK_FACE_heal_no_c 18081

/* Attribute field types (PK_ATTDEF_find gives definitions using them). */
#define PK_ATTRIB_field_integer_c 8001
#define PK_ATTRIB_field_real_c 8002
#define PK_ATTRIB_field_string_c 8003
#define PK_ATTRIB_field_ustring_c 8004
/* Field types part files carry besides those: three doubles per value for
 * positions, vectors, directions and axes, integers for tags and pointers. */
#define PK_ATTRIB_field_coordinate_c 6110
#define PK_ATTRIB_field_vector_c 6111
#define PK_ATTRIB_field_direction_c 6112
#define PK_ATTRIB_field_axis_c 6113
#define PK_ATTRIB_field_tag_c 6114
#define PK_ATTRIB_field_pointer_c 6115

/* ---------------------------------------------------------------------------
 * Error codes
 *
 * 565, 901 and 1082 are also the codes the application's delta store answers
 * with; they keep these values.
 * ------------------------------------------------------------------------- */

#define PK_ERROR_bad_delta 565            /* bad delta key, or delta in the wrong state */
#define PK_ERROR_memory_full 901          /* memory exhausted */
#define PK_ERROR_delta_read_past_end 1082 /* read past the end of a delta */

#define PK_ERROR_not_in_session 6001         /* no session is running */
#define PK_ERROR_already_in_session 6002     /* PK_SESSION_start while running */
#define PK_ERROR_frustrum_not_registered 6003
#define PK_ERROR_frustrum_incomplete 6004    /* a slot the kernel needs is null */
#define PK_ERROR_frustrum_failure 6005       /* a frustrum call answered ifail != 0 */
#define PK_ERROR_delta_failure 6006          /* a delta callback answered != 0 */
#define PK_ERROR_bad_user_field_size 6007
#define PK_ERROR_bad_option_data 6008        /* option record version or value refused */
#define PK_ERROR_null_arg_address 6009       /* a required pointer argument is null */
#define PK_ERROR_not_an_entity 6010          /* tag is not a live entity */
#define PK_ERROR_wrong_entity 6011           /* entity of the wrong class */
#define PK_ERROR_bad_value 6012              /* numeric argument out of range */
#define PK_ERROR_bad_mark 6013               /* mark or pmark unknown or not reachable */
#define PK_ERROR_rollback_not_started 6014   /* pmarks need registered delta callbacks */
#define PK_ERROR_corrupt_delta 6015          /* journal bytes read back do not decode */
#define PK_ERROR_bad_field 6016              /* attribute field index or type mismatch */
#define PK_ERROR_part_is_instanced 6017      /* deleting a part, or a transform, that instances refer to */
#define PK_ERROR_modeller_failure 6018       /* the geometry engine failed */
#define PK_ERROR_bad_transf 6019             /* transform matrix refused */
#define PK_ERROR_duplicate_entity 6020       /* an entity given twice */
#define PK_ERROR_bad_name 6021               /* empty or overlong name */

/* Part files and the model layer (PK_PART_receive / PK_PART_transmit). The
 * message of the last such failure: PK_ERROR_ask_last_message. */
#define PK_ERROR_cant_open_file 6100         /* the frustrum could not open the key */
#define PK_ERROR_bad_part_data 6101          /* the stream does not decode */
#define PK_ERROR_bad_topology 6102           /* dangling or inconsistent topology */
#define PK_ERROR_bad_geometry 6103           /* geometry that cannot be built */
#define PK_ERROR_unsupported_geometry 6104   /* geometry with no converter (procedural) */
#define PK_ERROR_perspective_transf 6105     /* a transform with perspective terms */
#define PK_ERROR_no_parts 6106               /* the file holds no body or assembly */
#define PK_ERROR_transmit_failed 6107        /* writing the file failed; no file is left */
#define PK_ERROR_unsupported_part 6108       /* a part this kernel cannot build or write */

/* The words that go with the last failure of PK_PART_receive or
 * PK_PART_transmit (naming the node, field or file where it stopped); empty
 * after a success. The text is owned by the kernel and stays valid until the
 * next such call. */
PK_ERROR_code_t PK_ERROR_ask_last_message(const char** message);

/* ---------------------------------------------------------------------------
 * Session
 * ------------------------------------------------------------------------- */

/* Hands the kernel the application's frustrum. The kernel needs fstart, fstop,
 * fmallo, fmfree, ffoprd, ffopwr, ffclos, ffread, ffwrit, ffoprb, ffseek and
 * fftell; a record missing any of them is refused with
 * PK_ERROR_frustrum_incomplete. Refused with PK_ERROR_already_in_session while
 * a session runs. */
PK_ERROR_code_t PK_SESSION_register_frustrum(const PK_SESSION_frustrum_t* frustrum);

typedef struct PK_SESSION_start_o_s {
  int o_t_version;    /* version of this record */
  char* journal_file; /* name of a journal file (NULL: none; this kernel keeps no journal file) */
  int user_field;     /* size of user fields in integers, 0..16 (0) */
  int reserved;       /* for future use (1) */
} PK_SESSION_start_o_t;
#define PK_SESSION_start_o_m(o) \
  ((o).o_t_version = 1, (o).journal_file = 0, (o).user_field = 0, (o).reserved = 1)

/* Starts the session: calls fstart, creates the current partition and the
 * system attribute definitions ("SDL/TYSA_NAME", "SDL/TYSA_UNAME", ...).
 * Errors: PK_ERROR_frustrum_not_registered, PK_ERROR_already_in_session,
 * PK_ERROR_bad_user_field_size, PK_ERROR_bad_option_data (a journal file asked
 * for), PK_ERROR_frustrum_failure (fstart failed). */
PK_ERROR_code_t PK_SESSION_start(const PK_SESSION_start_o_t* options);

/* Stops the session: deletes every entity and mark, closes the rollback file,
 * calls fstop. Deltas still in the application's store are forgotten without
 * any delta call (no close_fn, no delete_fn): the application owns them and
 * frees them itself, typically by stopping its store before the session.
 * Afterwards every call that needs a session answers PK_ERROR_not_in_session. */
PK_ERROR_code_t PK_SESSION_stop(void);

/* Session switches, stored and answered back (the checks themselves are done
 * by the operations that honour them). */
PK_ERROR_code_t PK_SESSION_set_check_self_int(PK_LOGICAL_t check);
PK_ERROR_code_t PK_SESSION_ask_check_self_int(PK_LOGICAL_t* check);
PK_ERROR_code_t PK_SESSION_set_check_continuity(PK_LOGICAL_t check);
PK_ERROR_code_t PK_SESSION_ask_check_continuity(PK_LOGICAL_t* check);

typedef struct PK_SESSION_smp_o_s {
  int o_t_version;                  /* version of this record */
  PK_thread_t thread_format;        /* (PK_thread_per_processor_c) */
  int n_threads;                    /* (1) */
  PK_LOGICAL_t on_single_processor; /* (PK_LOGICAL_false) */
} PK_SESSION_smp_o_t;
#define PK_SESSION_smp_o_m(o)                                                   \
  ((o).o_t_version = 1, (o).thread_format = PK_thread_per_processor_c,          \
   (o).n_threads = 1, (o).on_single_processor = PK_LOGICAL_false)

typedef struct PK_SESSION_smp_r_s {
  PK_thread_t thread_format;
  int n_threads;
  PK_LOGICAL_t on_single_processor;
  int n_processors; /* processors found on this machine */
} PK_SESSION_smp_r_t;

/* Multi-processing: disabled (n_threads 0), per processor (n_threads threads
 * per processor) or absolute (n_threads threads, 1..8). The kernel then runs its
 * geometry algorithms in parallel on that many threads, or not at all when the
 * result is one thread, or when the machine has one processor and
 * on_single_processor is false. Errors: PK_ERROR_bad_option_data. */
PK_ERROR_code_t PK_SESSION_set_smp(const PK_SESSION_smp_o_t* options);
/* What PK_SESSION_set_smp last set (the defaults before). */
PK_ERROR_code_t PK_SESSION_ask_smp(PK_SESSION_smp_r_t* smp);

PK_ERROR_code_t PK_SESSION_ask_curr_partition(PK_PARTITION_t* partition);

/* ---------------------------------------------------------------------------
 * Memory: through the frustrum's fmallo / fmfree. Arrays the kernel hands to
 * callers are allocated the same way and freed with PK_MEMORY_free.
 * ------------------------------------------------------------------------- */

PK_ERROR_code_t PK_MEMORY_alloc(size_t nbytes, void** pointer);
PK_ERROR_code_t PK_MEMORY_free(void* pointer);

/* ---------------------------------------------------------------------------
 * Partition deltas: the application's store for partitioned rollback.
 * ------------------------------------------------------------------------- */

typedef PK_ERROR_code_t (*PK_DELTA_open_for_write_f_t)(PK_PMARK_t pmark, PK_DELTA_t* key);
typedef PK_ERROR_code_t (*PK_DELTA_open_for_read_f_t)(PK_DELTA_t key);
typedef PK_ERROR_code_t (*PK_DELTA_close_f_t)(PK_DELTA_t key);
typedef PK_ERROR_code_t (*PK_DELTA_write_f_t)(PK_DELTA_t key, unsigned int n_bytes,
                                              const char* bytes);
typedef PK_ERROR_code_t (*PK_DELTA_read_f_t)(PK_DELTA_t key, unsigned int n_bytes,
                                             char* bytes);
typedef PK_ERROR_code_t (*PK_DELTA_delete_f_t)(PK_DELTA_t key);

typedef struct PK_DELTA_frustrum_s {
  PK_DELTA_open_for_write_f_t open_for_write_fn;
  PK_DELTA_open_for_read_f_t open_for_read_fn;
  PK_DELTA_close_f_t close_fn;
  PK_DELTA_write_f_t write_fn;
  PK_DELTA_read_f_t read_fn;
  PK_DELTA_delete_f_t delete_fn;
} PK_DELTA_frustrum_t;

/* Registers the delta store; all six functions are required
 * (PK_ERROR_frustrum_incomplete otherwise). Allowed before or during a session
 * as long as no pmark exists (and no delta of a deleted pmark is still kept
 * for an older mark); otherwise refused with PK_ERROR_already_in_session. A
 * store registered during a session serves it from then on. Without it pmarks
 * are refused with PK_ERROR_rollback_not_started. */
PK_ERROR_code_t PK_DELTA_register_callbacks(const PK_DELTA_frustrum_t* callbacks);

/* ---------------------------------------------------------------------------
 * Rollback: marks (positions in the undo journal) and partition marks
 * (positions whose journal stretch lives in the application's delta store).
 * ------------------------------------------------------------------------- */

/* Makes a pmark at the partition's current state: opens a delta for it
 * (open_for_write_fn) and writes the previous pmark's stretch of the journal to
 * the previous delta (write_fn, close_fn). O(changes since the last pmark). */
PK_ERROR_code_t PK_PARTITION_make_pmark(PK_PARTITION_t partition, PK_PMARK_t* pmark);

typedef struct PK_PMARK_goto_o_s {
  int o_t_version;                 /* version of this record */
  PK_LOGICAL_t want_attrib_mod;    /* report entities modified through attributes (true) */
  PK_LOGICAL_t want_new_entities;  /* return the entities the goto created (true) */
  PK_LOGICAL_t want_mod_entities;  /* return the entities the goto modified (true) */
  PK_LOGICAL_t want_del_entities;  /* return the entities the goto deleted (true) */
  PK_LOGICAL_t want_logged_mod;    /* modifications by logged changes only (false) */
} PK_PMARK_goto_o_t;
#define PK_PMARK_goto_o_m(o)                                                   \
  ((o).o_t_version = 6, (o).want_attrib_mod = PK_LOGICAL_true,                  \
   (o).want_new_entities = PK_LOGICAL_true, (o).want_mod_entities = PK_LOGICAL_true, \
   (o).want_del_entities = PK_LOGICAL_true, (o).want_logged_mod = PK_LOGICAL_false)

/* Returns the partition to its state when the pmark was made, reading the
 * deltas back (open_for_read_fn, read_fn, close_fn) and undoing them newest
 * first. Pmarks made after it stop existing (no roll-forward). The three arrays
 * (allocated with PK_MEMORY_alloc, NULL when empty or not wanted) list the
 * entities the goto created (brought back), modified and deleted (undone
 * creations). Cost: what changed since the pmark. Every delta is read and
 * checked before anything is undone: one that cannot be read or decoded
 * (PK_ERROR_corrupt_delta, or the store's code) leaves everything as it was.
 * A store failure after the undo (deleting spent deltas, opening the pmark's
 * fresh delta) is reported, but the goto stands. So does it when the lists
 * cannot be allocated (PK_ERROR_memory_full): that error concerns only the
 * lists, which are then all NULL with counts 0. Errors: PK_ERROR_bad_mark,
 * PK_ERROR_rollback_not_started, PK_ERROR_delta_failure, PK_ERROR_corrupt_delta,
 * PK_ERROR_memory_full. */
PK_ERROR_code_t PK_PMARK_goto_2(PK_PMARK_t pmark, const PK_PMARK_goto_o_t* options,
                                int* n_new, PK_ENTITY_t** new_entities, int* n_mod,
                                PK_ENTITY_t** mod_entities, int* n_del, int** del_entities);

/* Deletes pmarks. Journal stretches no remaining mark can reach are released
 * (delete_fn). n_deleted / deleted list the pmarks deleted (an array from
 * PK_MEMORY_alloc, NULL when none). */
PK_ERROR_code_t PK_PMARK_delete(int n_pmarks, const PK_PMARK_t* pmarks, int* n_deleted,
                                PK_PMARK_t** deleted);

/* Session marks: O(1) to make; going back costs what changed since. Marks made
 * after the one gone to stop existing. */
PK_ERROR_code_t PK_MARK_create(PK_MARK_t* mark);
PK_ERROR_code_t PK_MARK_goto(PK_MARK_t mark);
PK_ERROR_code_t PK_MARK_delete(PK_MARK_t mark);

/* ---------------------------------------------------------------------------
 * The K-interface rollback file.
 * ------------------------------------------------------------------------- */

#define KI_param_rollback_size 5                /* KI_SEINTP code: rollback file size */
#define KI_rollback_size_max 1073741824        /* largest size accepted: 1 GiB */
#define KI_rollback_size_min 4096              /* smallest size accepted */
#define KI_rollback_size_bad 964               /* size not positive, too small or too large */
#define KI_cant_open_rollback 928              /* ffoprb failed */
#define KI_rollback_not_started 929            /* KI_ROLBLM without a mark */
#define KI_rollback_file_full 930              /* the records do not fit the file */
#define KI_rollback_failure 931                /* write, seek or read of the file failed */
#define KI_not_in_session 932
#define KI_bad_parameter 933                   /* KI_SEINTP with an unknown code */

/* Sets an interface parameter; code 5 is the rollback file size in bytes
 * (refused with 964 outside KI_rollback_size_min..KI_rollback_size_max, or
 * once the file is open). */
void KI_SEINTP(const int* code, const int* ivalue, const double* rvalue, int* ifail);
/* Sets a rollback mark; opens the rollback file through ffoprb on first use
 * (928 when it cannot) and records the mark in it. */
void KI_ROLSMK(int* ifail);
/* Rolls back to the last mark, writing the records since it to the rollback
 * file and reading them back with ffseek / ffread. The mark stays. */
void KI_ROLBLM(int* ifail);

/* ---------------------------------------------------------------------------
 * Entities
 * ------------------------------------------------------------------------- */

PK_ERROR_code_t PK_ENTITY_ask_class(PK_ENTITY_t entity, PK_CLASS_t* klass);
/* is_entity: whether the tag names a live entity (never an error for a dead tag). */
PK_ERROR_code_t PK_ENTITY_is(PK_ENTITY_t entity, PK_LOGICAL_t* is_entity);
/* Deletes bodies, assemblies, instances, transforms and attributes, with the
 * attributes they carry and (for assemblies) their instances. A part referred to
 * by an instance, or a transform that places an instance, is refused with
 * PK_ERROR_part_is_instanced unless that instance (or its assembly) is deleted
 * with it. */
PK_ERROR_code_t PK_ENTITY_delete(int n_entities, const PK_ENTITY_t* entities);

/* ---------------------------------------------------------------------------
 * Geometry records, bodies, transforms
 * ------------------------------------------------------------------------- */

typedef struct PK_VECTOR_s {
  double coord[3];
} PK_VECTOR_t;
typedef PK_VECTOR_t PK_VECTOR1_t; /* a unit vector */

typedef struct PK_AXIS2_sf_s {
  PK_VECTOR_t location;
  PK_VECTOR1_t axis;          /* local z */
  PK_VECTOR1_t ref_direction; /* local x, perpendicular to axis */
} PK_AXIS2_sf_t;

/* Primitive solids; basis_set NULL means the world frame. The block is centred
 * on the location in x and y and stands on it in z; the cylinder's base centre
 * is the location, its axis the basis axis; the sphere is centred on the
 * location. Sizes must be positive and within the 1000 m size box
 * (PK_ERROR_bad_value). */
PK_ERROR_code_t PK_BODY_create_solid_block(double x, double y, double z,
                                           const PK_AXIS2_sf_t* basis_set, PK_BODY_t* body);
PK_ERROR_code_t PK_BODY_create_solid_cyl(double radius, double height,
                                         const PK_AXIS2_sf_t* basis_set, PK_BODY_t* body);
PK_ERROR_code_t PK_BODY_create_solid_sphere(double radius, const PK_AXIS2_sf_t* basis_set,
                                            PK_BODY_t* body);

PK_ERROR_code_t PK_BODY_ask_type(PK_BODY_t body, PK_BODY_type_t* body_type);

typedef struct PK_TRANSF_sf_s {
  double matrix[4][4]; /* row-major; translation in matrix[0..2][3], scale in [3][3] */
} PK_TRANSF_sf_t;

/* A rigid motion with an optional uniform scale; perspective terms must be 0
 * (PK_ERROR_bad_transf). */
PK_ERROR_code_t PK_TRANSF_create(const PK_TRANSF_sf_t* transf_sf, PK_TRANSF_t* transf);
PK_ERROR_code_t PK_TRANSF_ask(PK_TRANSF_t transf, PK_TRANSF_sf_t* transf_sf);

typedef struct PK_BODY_transform_o_s {
  int o_t_version; /* version of this record */
} PK_BODY_transform_o_t;
#define PK_BODY_transform_o_m(o) ((o).o_t_version = 1)

/* Applies the transform to the body's shape in place (the body keeps its tag;
 * its previous shape is journalled so that a roll-back restores it).
 * tolerance is accepted for interface compatibility (a rigid motion needs none). */
PK_ERROR_code_t PK_BODY_transform_2(PK_BODY_t body, PK_TRANSF_t transf, double tolerance,
                                    const PK_BODY_transform_o_t* options);

/* ---------------------------------------------------------------------------
 * Assemblies and instances
 * ------------------------------------------------------------------------- */

PK_ERROR_code_t PK_ASSEMBLY_create_empty(PK_ASSEMBLY_t* assembly);

typedef struct PK_INSTANCE_sf_s {
  PK_ASSEMBLY_t assembly; /* the assembly the instance belongs to */
  PK_PART_t part;         /* the part instanced: a body or an assembly */
  PK_TRANSF_t transf;     /* PK_ENTITY_null: identity */
} PK_INSTANCE_sf_t;

/* An instance of part in assembly; an assembly may not instance itself or one
 * of its ancestors (PK_ERROR_bad_value). */
PK_ERROR_code_t PK_INSTANCE_create(const PK_INSTANCE_sf_t* instance_sf, PK_INSTANCE_t* instance);
/* The distinct parts the assembly instances, in instance order (array from
 * PK_MEMORY_alloc; NULL when none). */
PK_ERROR_code_t PK_ASSEMBLY_ask_parts(PK_ASSEMBLY_t assembly, int* n_parts, PK_PART_t** parts);
/* The instances that refer to the part (array from PK_MEMORY_alloc; NULL when none). */
PK_ERROR_code_t PK_PART_ask_ref_instances(PK_PART_t part, int* n_instances,
                                          PK_INSTANCE_t** instances);

/* ---------------------------------------------------------------------------
 * Attributes
 * ------------------------------------------------------------------------- */

/* The attribute definition of that name, or PK_ENTITY_null when none exists (not
 * an error). System definitions exist from session start: "SDL/TYSA_NAME" (one
 * string field), "SDL/TYSA_UNAME" (one Unicode string field), among others. */
PK_ERROR_code_t PK_ATTDEF_find(const char* name, PK_ATTDEF_t* attdef);

PK_ERROR_code_t PK_ATTRIB_create_empty(PK_ENTITY_t owner, PK_ATTDEF_t attdef, PK_ATTRIB_t* attrib);
PK_ERROR_code_t PK_ATTRIB_set_string(PK_ATTRIB_t attrib, int field_index, const char* string);
PK_ERROR_code_t PK_ATTRIB_set_ustring(PK_ATTRIB_t attrib, int field_index,
                                      const PK_UCHAR_t* ustring);
/* The first attribute of that definition on the entity, PK_ENTITY_null if none. */
PK_ERROR_code_t PK_ENTITY_ask_first_attrib(PK_ENTITY_t entity, PK_ATTDEF_t attdef,
                                           PK_ATTRIB_t* attrib);
/* The string in a field, NULL when the field was never set. The string is owned
 * by the kernel and stays valid until the attribute changes or the session stops. */
PK_ERROR_code_t PK_ATTRIB_ask_string(PK_ATTRIB_t attrib, int field_index, char** string);
PK_ERROR_code_t PK_ATTRIB_ask_ustring(PK_ATTRIB_t attrib, int field_index, PK_UCHAR_t** ustring);
/* Numeric fields: a real field (and the position, vector, direction and axis
 * fields, three doubles per value) holds doubles, an integer field (and tag and
 * pointer fields) ints; a colour is one real field of three values. The asks
 * hand out an array from PK_MEMORY_alloc (NULL when the field is empty);
 * PK_ERROR_bad_field when the field is of another type. */
PK_ERROR_code_t PK_ATTRIB_ask_doubles(PK_ATTRIB_t attrib, int field_index, int* n_doubles, double** doubles);
PK_ERROR_code_t PK_ATTRIB_ask_ints(PK_ATTRIB_t attrib, int field_index, int* n_ints, int** ints);
PK_ERROR_code_t PK_ATTRIB_set_doubles(PK_ATTRIB_t attrib, int field_index, int n_doubles, const double* doubles);
PK_ERROR_code_t PK_ATTRIB_set_ints(PK_ATTRIB_t attrib, int field_index, int n_ints, const int* ints);

/* ---------------------------------------------------------------------------
 * Part files (implemented by the XT codec)
 * ------------------------------------------------------------------------- */

typedef struct PK_PART_receive_o_s {
  int o_t_version;                      /* version of this record */
  PK_transmit_format_t transmit_format; /* (PK_transmit_format_neutral_c) */
  PK_LOGICAL_t receive_user_fields;     /* (PK_LOGICAL_false) */
} PK_PART_receive_o_t;
#define PK_PART_receive_o_m(o)                                                   \
  ((o).o_t_version = 8, (o).transmit_format = PK_transmit_format_neutral_c,      \
   (o).receive_user_fields = PK_LOGICAL_false)

/* Receives the parts of a transmit file: opens key through ffoprd (guise
 * transmit, the options' format, header skipped), decodes, builds the parts,
 * closes. parts is an array from PK_MEMORY_alloc: the file's one body or
 * assembly, or each entry of its part list in order. On failure nothing is
 * created (PK_ERROR_cant_open_file, _bad_part_data, _bad_topology,
 * _bad_geometry, _unsupported_geometry, _perspective_transf, _no_parts,
 * _unsupported_part; the words from PK_ERROR_ask_last_message). */
PK_ERROR_code_t PK_PART_receive(const char* key, const PK_PART_receive_o_t* options,
                                int* n_parts, PK_PART_t** parts);

typedef struct PK_PART_transmit_o_s {
  int o_t_version;                      /* version of this record */
  PK_transmit_format_t transmit_format; /* (PK_transmit_format_neutral_c) */
  PK_LOGICAL_t transmit_user_fields;    /* (PK_LOGICAL_true) */
  int transmit_version;                 /* 0: current; else e.g. 70, 100 (0) */
  PK_LOGICAL_t transmit_nmnl_geometry;  /* (PK_LOGICAL_false) */
  PK_LOGICAL_t transmit_indexed;        /* indexed data for partial loading (PK_LOGICAL_false) */
  PK_transmit_meshes_t transmit_meshes; /* (PK_transmit_meshes_separate_c) */
} PK_PART_transmit_o_t;
#define PK_PART_transmit_o_m(o)                                                  \
  ((o).o_t_version = 4, (o).transmit_format = PK_transmit_format_neutral_c,      \
   (o).transmit_user_fields = PK_LOGICAL_true, (o).transmit_version = 0,         \
   (o).transmit_nmnl_geometry = PK_LOGICAL_false, (o).transmit_indexed = PK_LOGICAL_false, \
   (o).transmit_meshes = PK_transmit_meshes_separate_c)

/* Transmits the parts (with the sub-parts of assemblies) under key through
 * ffopwr, text or neutral binary; on failure the file is closed with the
 * abandon action, so that none is left (PK_ERROR_cant_open_file,
 * PK_ERROR_transmit_failed, PK_ERROR_duplicate_entity). */
PK_ERROR_code_t PK_PART_transmit(int n_parts, const PK_PART_t* parts, const char* key,
                                 const PK_PART_transmit_o_t* options);

/* ---------------------------------------------------------------------------
 * Booleans (implemented with the operations)
 * ------------------------------------------------------------------------- */

typedef struct PK_BODY_boolean_o_s {
  int o_t_version;                /* version of this record */
  PK_boolean_function_t function; /* (PK_boolean_unite_c) */
  PK_LOGICAL_t merge_imprinted;   /* (PK_LOGICAL_false) */
  PK_LOGICAL_t allow_disjoint;    /* (PK_LOGICAL_false) */
  double default_tol;             /* (1.0e-5) */
  double max_tol;                 /* (0.0) */
  PK_LOGICAL_t tracking;          /* (PK_LOGICAL_false) */
} PK_BODY_boolean_o_t;
#define PK_BODY_boolean_o_m(o)                                                   \
  ((o).o_t_version = 19, (o).function = PK_boolean_unite_c,                      \
   (o).merge_imprinted = PK_LOGICAL_false, (o).allow_disjoint = PK_LOGICAL_false, \
   (o).default_tol = 1.0e-5, (o).max_tol = 0.0, (o).tracking = PK_LOGICAL_false)

/* What became of the faces, edges and vertices an operation touched. */
typedef int PK_TOPOL_track_t;
#define PK_TOPOL_track_delete_c 27040 /* originals gone, no products */
#define PK_TOPOL_track_merge_c 27041  /* several originals, one survivor */
#define PK_TOPOL_track_create_c 27042 /* new products; originals: what they were inferred from */
#define PK_TOPOL_track_split_c 27043  /* one original, divided into the products */
#define PK_TOPOL_track_derive_c 27044 /* several originals, several products */

typedef struct PK_TOPOL_track_record_r_s {
  PK_TOPOL_track_t track;
  int n_original_topols;
  int* original_topols;          /* may name entities that no longer exist */
  PK_CLASS_t* original_classes;  /* the class of each original */
  int n_product_topols;
  PK_TOPOL_t* product_topols;
} PK_TOPOL_track_record_r_t;

/* Filled only when the operation's options ask for tracking. The internal
 * fields hold the arrays the records point into; PK_TOPOL_track_r_f frees
 * them, and nothing else may. */
typedef struct PK_TOPOL_track_r_s {
  int n_track_records;
  PK_TOPOL_track_record_r_t* track_records;
  int* internal_origs;
  PK_CLASS_t* internal_classes;
  int* internal_prods;
} PK_TOPOL_track_r_t;

typedef struct PK_boolean_r_s {
  PK_boolean_result_t result; /* PK_boolean_result_..._c */
  int n_bodies;
  PK_BODY_t* bodies; /* from PK_MEMORY_alloc; NULL when none */
} PK_boolean_r_t;

/* Unites, subtracts or intersects the target with the tools. On success the
 * target keeps its tag and gets the new shape, the tools stop existing, and
 * results lists the resulting bodies (the target first). No clash changes
 * nothing (21651); a failure leaves every body as it was (21653), and
 * PK_ERROR_ask_last_message then says why. */
PK_ERROR_code_t PK_BODY_boolean_2(PK_BODY_t target, int n_tools, const PK_BODY_t* tools,
                                  const PK_BODY_boolean_o_t* options,
                                  PK_TOPOL_track_r_t* tracking, PK_boolean_r_t* results);
/* Free what PK_BODY_boolean_2 put in its result records. */
PK_ERROR_code_t PK_TOPOL_track_r_f(PK_TOPOL_track_r_t* tracking);
PK_ERROR_code_t PK_boolean_r_f(PK_boolean_r_t* results);

/* ---------------------------------------------------------------------------
 * Topology enquiries and editing (implemented with the operations)
 * ------------------------------------------------------------------------- */

/* The infinite void region first, then one solid region per solid, then one void
 * region per cavity. */
PK_ERROR_code_t PK_BODY_ask_regions(PK_BODY_t body, int* n_regions, PK_REGION_t** regions);
PK_ERROR_code_t PK_BODY_ask_faces(PK_BODY_t body, int* n_faces, PK_FACE_t** faces);
PK_ERROR_code_t PK_REGION_ask_shells(PK_REGION_t region, int* n_shells, PK_SHELL_t** shells);
PK_ERROR_code_t PK_REGION_is_solid(PK_REGION_t region, PK_LOGICAL_t* is_solid);
/* Positive: the shell's region lies inside it; negative: outside. */
PK_ERROR_code_t PK_SHELL_find_sign(PK_SHELL_t shell, PK_SHELL_sign_t* sign);
PK_ERROR_code_t PK_SHELL_ask_oriented_faces(PK_SHELL_t shell, int* n_faces, PK_FACE_t** faces,
                                            PK_LOGICAL_t** orients);
/* All shells of the body, in region order (for each region its shells). */
PK_ERROR_code_t PK_BODY_ask_shells(PK_BODY_t body, int* n_shells, PK_SHELL_t** shells);
PK_ERROR_code_t PK_BODY_ask_edges(PK_BODY_t body, int* n_edges, PK_EDGE_t** edges);
PK_ERROR_code_t PK_BODY_ask_vertices(PK_BODY_t body, int* n_vertices, PK_VERTEX_t** vertices);

/* Mass properties. */
typedef int PK_mass_t;
typedef int PK_mass_periphery_t;
#define PK_mass_no_c 6220     /* amount only */
#define PK_mass_mass_c 6221   /* amount and mass */
#define PK_mass_c_of_g_c 6222 /* and the centre of gravity */
#define PK_mass_m_of_i_c 6223 /* and the moment of inertia */
#define PK_mass_periphery_no_c 6224
#define PK_mass_periphery_yes_c 6225

typedef struct PK_TOPOL_eval_mass_props_o_s {
  int o_t_version;               /* version of this record */
  PK_mass_t mass;                /* what to compute besides the amount (PK_mass_m_of_i_c) */
  PK_mass_periphery_t periphery; /* (PK_mass_periphery_yes_c) */
} PK_TOPOL_eval_mass_props_o_t;
#define PK_TOPOL_eval_mass_props_o_m(o) \
  ((o).o_t_version = 1, (o).mass = PK_mass_m_of_i_c, (o).periphery = PK_mass_periphery_yes_c)

#define PK_ERROR_bad_accuracy 6201   /* accuracy outside 0..1 */
#define PK_ERROR_different_types 6202 /* topols of different classes or body types */
#define PK_ERROR_mass_eq_0 6203      /* the amount is zero */

/* Mass properties of bodies, regions, faces or edges, all of one kind, added
 * up: amount is the volume of solid bodies and regions (void regions other
 * than the infinite one: the volume they enclose), the area of sheet bodies
 * and faces, the length of wire bodies and edges; mass is the amount (unit
 * density); c_of_g[3]; m_of_i[9] the inertia tensor at the centre of gravity;
 * periphery the surface area of solids, the boundary length of faces and
 * sheets. accuracy in 0..1 sets the relative error the integration aims at,
 * 1 - accuracy (at least 1e-12, at most 1e-2): 0.999999999 asks for 1e-9.
 * Arrays not wanted may be NULL. */
PK_ERROR_code_t PK_TOPOL_eval_mass_props(int n_topols, const PK_TOPOL_t topols[], double accuracy,
                                         const PK_TOPOL_eval_mass_props_o_t* options, double amount[],
                                         double mass[], double c_of_g[], double m_of_i[],
                                         double periphery[]);

typedef struct PK_BOX_s {
  double coord[6]; /* xmin, ymin, zmin, xmax, ymax, zmax */
} PK_BOX_t;
/* A box around a body, region, shell, face, loop, edge or vertex (tight on its
 * geometry, not grown by tolerances). */
PK_ERROR_code_t PK_TOPOL_find_box(PK_TOPOL_t topol, PK_BOX_t* box);

/* Validity check: OCCT's checker over the body's topology and geometry. */
typedef int PK_check_state_t;
#define PK_BODY_state_ok_c 6240
#define PK_BODY_state_invalid_c 6241   /* the body as a whole (e.g. no shape) */
#define PK_REGION_state_bad_c 6242     /* a solid that is not closed or is inside out */
#define PK_SHELL_state_bad_c 6243      /* a shell not closed, not connected or badly oriented */
#define PK_FACE_state_bad_c 6244       /* a face's loops, surface or pcurves */
#define PK_LOOP_state_bad_c 6245
#define PK_EDGE_state_bad_c 6246       /* an edge's curves, ranges or tolerance */
#define PK_VERTEX_state_bad_c 6247     /* a vertex off its edges */

typedef struct PK_check_fault_s {
  PK_check_state_t state;
  PK_ENTITY_t entity_1; /* the entity at fault */
  PK_ENTITY_t entity_2; /* PK_ENTITY_null */
  PK_VECTOR_t position; /* a point of the entity at fault where one is known, else 0 */
} PK_check_fault_t;

typedef struct PK_BODY_check_o_s {
  int o_t_version; /* version of this record */
  int max_faults;  /* at most this many faults (10); 0: the first fault is an error */
} PK_BODY_check_o_t;
#define PK_BODY_check_o_m(o) ((o).o_t_version = 1, (o).max_faults = 10)

#define PK_ERROR_check_error 6204 /* max_faults 0 and a fault was found */

/* Checks the body; no fault: n_faults 0 and faults NULL. Vertices are
 * reported before edges, edges before loops and faces, then shells and
 * solids: the first fault is the smallest entity at fault. */
PK_ERROR_code_t PK_BODY_check(PK_BODY_t body, const PK_BODY_check_o_t* options, int* n_faults,
                              PK_check_fault_t** faults);

#define PK_ERROR_not_in_same_body 6205 /* faces of more than one body */
#define PK_ERROR_cant_heal 6206        /* the faces left cannot be healed into a valid body */

/* Deletes faces of one body. Faces that make up whole shells of a solid other
 * than its outer one (cavities) are removed directly, with their void
 * regions. Any other set needs heal_action PK_FACE_heal_yes_c: the
 * neighbouring faces grow over the wound (OCCT's defeaturing) and the result
 * must check valid; otherwise PK_ERROR_cant_heal and nothing changes. Faces
 * that are a solid's whole outer shell are refused (PK_ERROR_cant_heal): the
 * solid would go. The body keeps its tag; faces that survive keep theirs. */
PK_ERROR_code_t PK_FACE_delete(int n_faces, const PK_FACE_t* faces, PK_FACE_heal_t heal_action);

#ifdef __cplusplus
}
#endif

#endif /* MELD_PK_H */
