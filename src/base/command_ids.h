#pragma once
// The numeric command ids of the menus. Windows below the shell (panels,
// canvas) post them to the main window, so they live at the bottom.
#include <cstdint>

namespace tavora {

enum Command : int32_t {
  kCmdNew = 1000, kCmdOpen = 1001, kCmdBrowseFolder = 1002, kCmdSave = 1003, kCmdSaveAs = 1004,
  kCmdClose = 1005, kCmdPrint = 1006, kCmdBatch = 1007, kCmdCaptureScreen = 1008,
  kCmdCaptureRegion = 1009, kCmdCaptureDelay = 1011, kCmdExit = 1012,
  kCmdUndo = 1100, kCmdRedo = 1101, kCmdCut = 1102, kCmdCopy = 1103, kCmdPaste = 1104,
  kCmdPasteNew = 1105, kCmdClear = 1106, kCmdFillForeground = 1107, kCmdFillBackground = 1108,
  kCmdFillSurroundings = 1109,
  kCmdSelectAll = 1150, kCmdSelectNone = 1151, kCmdSelectInvert = 1152, kCmdFeather = 1153,
  kCmdGrow = 1154, kCmdShrink = 1155, kCmdFromLayerAlpha = 1156,
  kCmdZoomIn = 1200, kCmdZoomOut = 1201, kCmdFit = 1202, kCmdZoom100 = 1203,
  kCmdActualPixels = 1204, kCmdSmooth = 1205, kCmdThemeSystem = 1206, kCmdThemeLight = 1207,
  kCmdThemeDark = 1208, kCmdGrid = 1209, kCmdRuler = 1210, kCmdFullScreen = 1211,
  kCmdSlideshow = 1212, kCmdStartBrowse = 1213, kCmdHistory = 1214, kCmdSettings = 1215,
  kCmdResize = 1300, kCmdCanvasSize = 1302, kCmdCropToSelection = 1303, kCmdRotateCw = 1305,
  kCmdRotateCcw = 1306, kCmdRotate180 = 1307, kCmdFreeRotate = 1308, kCmdFlipVertical = 1309,
  kCmdMirror = 1310, kCmdColorDepth = 1311, kCmdFlattenImage = 1312, kCmdUpscayl = 1313,
  kCmdPhotoshop = 1314,
  kCmdBrightnessContrast = 1400, kCmdGamma = 1401, kCmdHueSaturation = 1402, kCmdColorize = 1403,
  kCmdGrayscale = 1404, kCmdSepia = 1405, kCmdInvert = 1406, kCmdPosterize = 1407,
  kCmdThreshold = 1408, kCmdAutoContrast = 1409, kCmdAutoTone = 1410, kCmdAutoColor = 1411,
  kCmdHdrToneMap = 1412,
  kCmdGaussianBlur = 1450, kCmdBlur = 1451, kCmdLensBlur = 1452, kCmdMotionBlur = 1453,
  kCmdLensFlare = 1454, kCmdSharpen = 1455, kCmdAddNoise = 1456, kCmdPixelate = 1457,
  kCmdEmboss = 1458, kCmdEdgeDetect = 1459, kCmdWhitenArea = 1460, kCmdSpiral = 1461,
  kCmdNewLayer = 1500, kCmdDuplicateLayer = 1501, kCmdDeleteLayer = 1502, kCmdMergeDown = 1503,
  kCmdFlattenLayers = 1504, kCmdLayerUp = 1505, kCmdLayerDown = 1506, kCmdLayerProperties = 1507,
  kCmdLayerFromSelection = 1508, kCmdRotateLayerCw = 1510, kCmdRotateLayerCcw = 1511,
  kCmdRotateLayer180 = 1512, kCmdFreeRotateLayer = 1513, kCmdResizeLayer = 1514,
  kCmdFlipLayerVertical = 1515, kCmdMirrorLayer = 1516,
  kCmdAbout = 1600, kCmdManual = 1601,
  kCmdFirstTab = 1900, kCmdMoreTabs = 1910,
};

}  // namespace tavora
