#include "Rooms/Find/Services/Index/FindKinds.h"

#include <array>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"
#include "StorageEngine/DiskTree/ContentKind.h"

namespace tidyro {

namespace {

/// By what a person would look for it as: a script is code although it runs, a disk image is an
/// archive although it mounts, a web page is code.
constexpr std::array<ValueWords<FindCategory>, 7> extensionLists{{
    {FindCategory::document,
     "pdf doc docx docm dot dotx dotm odt ott fodt rtf rtfd txt text md markdown mdown rst adoc "
     "asciidoc org tex latex bib pages wpd wps abw xls xlsx xlsm xlsb xlt xltx ods ots fods "
     "numbers csv tsv ppt pptx pptm pps ppsx pot potx odp otp fodp key keynote epub mobi azw azw3 "
     "fb2 djvu djv ps oxps xps chm eml emlx msg mbox ics vcf one onetoc2 vsd vsdx odg pub mpp "
     "indd qxp xmind mm drawio opml srt vtt webloc url ged gdoc gsheet gslides"},
    {FindCategory::image,
     "jpg jpeg jpe jfif png apng gif webp bmp dib tif tiff heic heif heics avif jxl jp2 j2k jpf "
     "jpx svg svgz ico icns cur psd psb ai eps xcf kra ora afphoto afdesign sketch fig raw cr2 "
     "cr3 crw nef nrw arw srf sr2 orf rw2 raf dng pef srw x3f 3fr iiq erf mrw kdc dcr exr hdr tga "
     "pcx ppm pgm pbm pnm xbm xpm dds cdr wmf emf photoslibrary photolibrary migratedphotolibrary "
     "aplibrary lrcat xmp"},
    {FindCategory::video,
     "mp4 m4v mov qt mkv webm avi wmv asf flv f4v mpg mpeg mpe m1v m2v mpv m2ts mts 3gp 3g2 ogv "
     "ogm vob rm rmvb divx dv mxf braw r3d prores hevc h264 h265 264 265 y4m amv imovielibrary "
     "fcpbundle theater tvlibrary prproj aep veg"},
    {FindCategory::audio,
     "mp3 m4a m4b m4p m4r aac wav wave w64 aif aiff aifc flac alac ogg oga opus spx wma amr au "
     "snd ape wv mka mp2 mpc dsf dff caf ac3 dts mid midi kar xm s3m ra gsm voc aup aup3 "
     "als flp logicx band musiclibrary m3u m3u8 pls cue"},
    {FindCategory::archive,
     "zip zipx tar gz tgz taz bz2 tbz tbz2 xz txz lz tlz lzma lzo lz4 zst tzst br 7z rar z cpio "
     "ar arj lha lzh ace cab sit sitx hqx jar war ear aar whl egg gem crate nupkg deb rpm pkg mpkg "
     "xar xip dmg iso img toast nrg mdf vhd vhdx vmdk vdi qcow2 wim squashfs sparseimage "
     "sparsebundle bak"},
    {FindCategory::code,
     "c h cc cpp cxx c++ hh hpp hxx h++ inl ipp ixx cppm m swift rs go zig d nim v java kt kts "
     "scala sc groovy gradle clj cljs cljc edn cs csx fs fsx vb py pyw pyi pyx ipynb rb erb rake "
     "php phtml pl pm t lua tcl r jl hs lhs ml mli elm ex exs erl hrl lisp lsp cl el scm rkt f "
     "f77 f90 f95 for pas pp ada adb ads asm s cob js mjs cjs jsx ts cts tsx vue svelte "
     "astro coffee dart html htm xhtml css scss sass less styl json json5 jsonc jsonl ndjson yaml "
     "yml toml xml xsd xsl xslt dtd ini cfg conf properties plist sql graphql gql proto thrift "
     "sh bash zsh fish csh ksh ps1 psm1 psd1 bat cmd awk sed vim mk mak make cmake ninja bazel "
     "bzl nix dockerfile tf tfvars hcl diff patch lock storyboard xib strings entitlements "
     "pbxproj xcconfig modulemap metal glsl hlsl vert frag wgsl cu cuh sol wat vhdl sv "
     "svh qml ui pro vcxproj csproj sln xcodeproj xcworkspace playground pbproj xcarchive xctest "
     "dsym docset framework"},
    {FindCategory::app,
     "app appex exe msi msix appx com scr apk xapk aab ipa appimage flatpak flatpakref snap "
     "desktop lnk prefpane saver wdgt xpc plugin component qlgenerator mdimporter kext dext "
     "systemextension bundle service workflow action vst vst3 run elf"},
}};

constexpr auto byExtension = lowercaseTable<extensionLists>();

} // namespace

FindCategory FindExtensions::category(std::string_view name, bool isDirectory) {
    const std::string_view extension = path::extensionOf(name);
    if (!isDirectory) return byExtension.find(extension).value_or(FindCategory::other);
    if (extension.empty() || !isPackageFolder(name)) return FindCategory::folder;
    return byExtension.find(extension).value_or(FindCategory::folder);
}

bool FindExtensions::isPackage(std::string_view name) { return isPackageFolder(name); }

} // namespace tidyro
