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

#ifdef __cplusplus
}
#endif

#endif /* MELD_PK_H */
