#pragma once
// Enumerations shared by the data model and the editor.

#include <QList>
#include <QString>
#include <QtGlobal>

namespace ptCloud {

// Point columns. 1 and 2 are internal (normals of meshes, cluster labels of
// splits): the user never chooses them, so dialogs do not list them.
enum EDataSetColumn : int {
    DSC_Location = 0,
    DSC_Normal = 1,
    DSC_Label = 2,
    DSC_Color = 3,
    DSC_Intensity = 4,
    DSC_ReturnNumber = 5,
    DSC_NumberOfReturnsGivenPulse = 6,
    DSC_ScanDirectionFlag = 7,
    DSC_EdgeOfFlightingLine = 8,
    DSC_Classification = 9,
    DSC_ScanAngleRank = 10,
    DSC_UserData = 11,
    DSC_PointSourceId = 12,
    DSC_GpsTime = 13,
    DSC_WavePacketDescriptorIndex = 14,
    DSC_ByteOffsetToWaveformData = 15,
    DSC_WaveformPacketSizeInBytes = 16,
    DSC_ReturnPointWaveformLocation = 17,
    DSC_Location_T = 18,
    DSC_Count = 19
};

inline uint qHash(EDataSetColumn c, uint seed = 0) { return ::qHash(int(c), seed); }

// Result of every controller command. 0 is success; the editor's long-action
// runner gives 5, 7, 8, 9 and 10 their own messages.
enum EEPtCloudActResult : int {
    PCAR_Success = 0,
    PCAR_InvalidParameter = 1,
    PCAR_FileError = 2,
    PCAR_NotFound = 3,
    PCAR_AlreadyExists = 4,
    PCAR_InvalidDataSet = 5,
    PCAR_Cancelled = 6,
    PCAR_CannotExecute = 7,
    PCAR_ExecuteFailed = 8,
    PCAR_Crashed = 9,
    PCAR_CrashedAndClose = 10
};

// Order of the points inside each block.
enum EDataSetSort : int {
    DSS_None = 0,      // as read
    DSS_Shuffled = 1,  // taking every k-th point is an even thinning of the block
    DSS_Morton = 2,    // along a Morton curve of the block's box: every k-th point is an even
                       // thinning and nearby points are drawn together
};

// What a data file holds.
enum EDataSetType : int {
    DST_Points = 0,
    DST_Mesh = 1,      // points with triangle indices
    DST_Split = 2,     // points with a cluster or class label
    DST_Classify = 3,  // points labelled ground / non-ground
};

// How the editor colours a block.
enum EColoringMode : int {
    CM_RGB = 0,             // the Color column
    CM_Classification = 1,  // ASPRS class colours
    CM_Intensity = 2,
    CM_Height = 3,          // ramp over the dataset's z range
    CM_Cluster = 4,         // palette by the Label column
    CM_ReturnNumber = 5,    // first, second, ... return
    CM_PointSource = 6,     // palette by the flight line (PointSourceId)
};

// How earth volumes are computed.
enum EVolumeCalcFunction : int {
    VCF_DTM = 0,   // against the DEM mesh
    VCF_Grid = 1,  // from the points on a grid
};

// Display name of a column ("Location", "Color", ...); empty for 1 and 2.
QString columnName(EDataSetColumn c);
// Column from its display name; false when unknown.
bool columnFromName(const QString& name, EDataSetColumn* out);
// The user-visible columns, in value order (no 1 and 2).
QList<EDataSetColumn> userColumns();

}  // namespace ptCloud
