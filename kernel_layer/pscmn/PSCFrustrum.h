// The frustrum: the file, memory and graphics services that the kernel calls
// back into. Every slot reports through its final ifail argument (0 success,
// otherwise one of the PK_FR_* codes).
#pragma once

#include "pk.h"

extern "C" {

void FSTART(int* ifail);
void FABORT(int* ifail);
void FSTOP(int* ifail);
void FMALLO(const int* nbytes, char** memory, int* ifail);
void FMFREE(const int* nbytes, char** memory, int* ifail);

void FFOPRD(const int* guise, const int* format, const char* name, const int* namlen,
            const int* skiphd, int* strid, int* ifail);
void FFOPWR(const int* guise, const int* format, const char* name, const int* namlen,
            const char* pd2, const int* pd2len, int* strid, int* ifail);
void FFCLOS(const int* guise, const int* strid, const int* action, int* ifail);
void FFREAD(const int* guise, const int* strid, const int* nmax, char* buffer,
            int* nactual, int* ifail);
void FFWRIT(const int* guise, const int* strid, const int* nchars, const char* buffer,
            int* ifail);

// The rollback scratch file and its positioning.
void FFOPRB(const int* guise, const int* minsize, const int* maxsize, int* actsize,
            int* strid, int* ifail);
void FFSEEK(const int* guise, const int* strid, const int* position, int* ifail);
void FFTELL(const int* guise, const int* strid, int* position, int* ifail);

// This program draws nothing: the graphics slots only succeed.
void GOSGMT(const int* segtyp, const int* ntags, const int* tags, const int* ngeom,
            const double* geom, const int* nlntp, const int* lntp, int* ifail);
void GOOPSG(const int* segtyp, const int* ntags, const int* tags, const int* ngeom,
            const double* geom, const int* nlntp, const int* lntp, int* ifail);
void GOCLSG(const int* segtyp, const int* ntags, const int* tags, const int* ngeom,
            const double* geom, const int* nlntp, const int* lntp, int* ifail);
void GOPIXL(const int* nreals, const double* rvals, const int* nints, const int* ivals,
            int* ifail);
void GOOPPX(const int* nreals, const double* rvals, const int* nints, const int* ivals,
            int* ifail);
void GOCLPX(const int* nreals, const double* rvals, const int* nints, const int* ivals,
            int* ifail);

}  // extern "C"

// Puts the nineteen slots above into the record; the foreign-geometry and
// user-field slots stay null.
void PSCFillFrustrum(PK_SESSION_frustrum_t* record);

// Names used in file names and in the part-file header.
const char* PSCGuiseName(int guise);
const char* PSCFormatName(int format);
const char* PSCGuiseExtension(int guise, bool shortNames);
const char* PSCFormatSuffix(int format, bool shortNames);
